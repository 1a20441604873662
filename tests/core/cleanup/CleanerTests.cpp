#include "backup/BackupRunner.h"
#include "cleanup/Cleaner.h"
#include "cleanup/CleanupError.h"
#include "imap/IMAPDate.h"
#include "mime/MIMEParser.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"
#include "support/FakeIMAPServer.h"
#include "support/FakeMailbox.h"
#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/TemporaryDirectory.h"
#include "vault/ArchiveLayout.h"
#include "vault/VaultLock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <ranges>
#include <set>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using Status = CleanupItem::Status;
using Strings = std::vector<std::string>;
using test::DovecotFixture;
using test::FakeIMAPCommand;
using test::FakeIMAPConnection;
using test::FakeMailbox;

// A fake server's INBOX and a vault holding copies of it, either side open to change.
struct CleanupWorld {
    static constexpr int64_t oldDate = 1704067200, newDate = 1735689600, limitDate = 1717200000;
    static constexpr const char* folderDirectory = "Test/INBOX";

    explicit CleanupWorld(bool uidplus)
        : layout{directory.path() / "vault"}, mailbox(FakeMailbox::Options{uidplus, "user", "pw"}),
          server(std::make_unique<test::FakeIMAPServer>(mailbox.greeting(), mailbox.handler())) {
        account.id = UUID::random();
        account.label = "Test";
        account.username = "user";
        account.server = {"127.0.0.1", server->port(), true};
        account.folders = {"INBOX"};
        account.knownFolders = {{"INBOX", "Inbox", "/", {}}};
        folder = {"INBOX", folderDirectory, 1, 0, {}, {}, {}, false};
    }

    static std::string message(int n, size_t padding = 0) {
        auto number = std::to_string(n);
        return "From: Sender <sender@example.org>\r\nTo: user@example.org\r\nSubject: Message " +
               number + "\r\nMessage-ID: <" + number + "@example.org>\r\n\r\nBody " + number +
               std::string(padding, '.') + "\r\n";
    }

    /// A message on the server; `filed`: copied to `pathOf`, and in the sync state if `recorded`.
    uint32_t add(const std::string& body, int64_t date = oldDate, bool filed = true,
                 bool recorded = true) {
        uint32_t uid = mailbox.add("INBOX", body, {}, date);
        if (filed) {
            std::filesystem::create_directories(layout.url(pathOf(uid)).parent_path());
            std::ofstream(layout.url(pathOf(uid)), std::ios::binary) << body;
            if (recorded) {
                folder.files[std::to_string(uid)] = pathOf(uid);
            }
        }
        folder.highestUID = std::max(folder.highestUID, uid);
        return uid;
    }

    void addMany(int count) {
        for (int i = 0; i < count; ++i) {
            add(message(i, static_cast<size_t>(i % 7)));
        }
    }

    void saveSync() {
        AccountSyncState state;
        state.folders["INBOX"] = folder;
        layout.saveSync(state, account);
    }

    std::string pathOf(uint32_t uid) const {
        return std::string(folderDirectory) + "/Message " + std::to_string(uid) + ".eml";
    }

    Cleaner cleaner(int64_t chunkSize = 200) const {
        Cleaner result(layout, account, "pw");
        result.chunkSize = chunkSize;
        result.timeout = 10;
        return result;
    }
    CleanupPlan plan() const { return cleaner().plan("INBOX", dateFromUnix(limitDate)); }

    /// The client lines so far that start with `command`, untagged.
    std::vector<std::string> sent(std::string_view command) const {
        std::vector<std::string> lines;
        for (const std::string& line : server->received()) {
            auto untagged = line.substr(std::min(line.find(' '), line.size() - 1) + 1);
            if (untagged.starts_with(command)) {
                lines.push_back(untagged);
            }
        }
        return lines;
    }

    std::vector<uint32_t> onServer() const { return mailbox.uids("INBOX"); }
    std::vector<uint32_t> markedOnServer() const {
        std::vector<uint32_t> marked;
        for (const FakeMailbox::Message& message : mailbox.messages("INBOX")) {
            if (std::ranges::count(message.flags, "\\Deleted") > 0) {
                marked.push_back(message.uid);
            }
        }
        return marked;
    }

    test::TemporaryDirectory directory;
    ArchiveLayout layout;
    MailAccount account;
    FakeMailbox mailbox;
    std::unique_ptr<test::FakeIMAPServer> server;
    FolderState folder;
};

TEST(CleanupWords, TellWhyAMessageStaysAndWhatLeftAndWhatStayed) {
    struct Row {
        Status status;
        std::optional<std::string> reason;
    };
    const Row rows[] = {
        {Status::verified(), std::nullopt},
        {Status::sizeMismatch(1233, 1234), "Local copy is 1233 bytes, the server’s is 1234"},
        {Status::notBackedUp(), "Not in your vault yet — run a backup first"},
        {Status::unreadable(), "Local copy doesn’t read as a complete email"},
    };
    for (const Row& row : rows) {
        CleanupItem item{7, 1234, std::nullopt, "a.eml", row.status};
        EXPECT_EQ(item.keptReason(), row.reason) << row.status;
    }
    const std::pair<CleanupError, std::string> errors[] = {
        {CleanupError::otherDeletedMessages(3),
         "This server can only remove all messages marked for deletion at once, and 3 other "
         "message(s) in the folder are already marked. Nothing was deleted."},
        {CleanupError::stopped(400, 450, "EXPUNGE failed (NO): disk full"),
         "Released 400 of 450 messages, then the server reported a problem (EXPUNGE failed (NO): "
         "disk full). The other 50 are still on the server, untouched."},
        {CleanupError::stopped(0, 450, "x"),
         "Released 0 of 450 messages, then the server reported a problem (x). The other 450 are "
         "still on the server, untouched."},
        {CleanupError::stopped(0, 450), "Stopped before anything was released."},
        {CleanupError::stopped(200, 450),
         "Stopped after releasing 200 of 450 messages. The other 250 stay on the server."},
        {CleanupError::uidValidityChanged(),
         "The folder was renumbered on the server since it was checked. Run a backup, then "
         "check again."},
        {CleanupError::nothingVerified(),
         "No message in the selection has a verified copy in your vault. Nothing was deleted."},
    };
    for (const auto& [error, text] : errors) {
        EXPECT_EQ(error.description(), text);
        EXPECT_STREQ(error.what(), text.c_str());
    }
    EXPECT_NE(CleanupError::stopped(1, 2), CleanupError::stopped(1, 2, "x"));
}

TEST(CleanupPlan, DerivedValuesCountOnlyWhatTheyName) {
    CleanupPlan plan;
    plan.items = {
        {1, 100, std::nullopt, "1.eml", Status::verified()},
        {2, 200, std::nullopt, "2.eml", Status::pending()},
        {3, 300, std::nullopt, "3.eml", Status::sizeMismatch(299, 300)},
        {4, 400, std::nullopt, "4.eml", Status::verified()},
        {5, 500, std::nullopt, std::nullopt, Status::notBackedUp()},
        {6, 600, std::nullopt, "6.eml", Status::unreadable()},
        {7, 700, std::nullopt, "7.eml", Status::pending()},
    };
    EXPECT_EQ(plan.verified().size(), 2u);
    ASSERT_EQ(plan.unverified().size(), 3u);
    EXPECT_EQ(plan.unverified()[1].uid, 5u);
    EXPECT_EQ(plan.pending(), 2);
    EXPECT_EQ(plan.verifiedBytes(), 500);

    for (auto [uidplus, others, safe] :
         {std::tuple{true, 5, true}, {false, 0, true}, {false, 1, false}}) {
        plan.serverSupportsUIDPlus = uidplus;
        plan.otherDeletedOnServer = others;
        EXPECT_EQ(plan.canDeleteSafely(), safe) << uidplus << " " << others;
    }
}

void put(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

TEST(CleanerVerify, OnlyAWholeMailOfTheServersSizeIsProven) {
    test::TemporaryDirectory directory;
    const std::string mail = "From: a@example.org\r\nSubject: hi\r\n\r\nbody\r\n";
    const auto size = static_cast<int64_t>(mail.size());
    struct Row {
        const char* name;
        std::optional<std::string> content; // nothing: no file at all
        int64_t serverSize;
        Status expected;
    };
    const Row rows[] = {
        {"exact copy", mail, size, Status::verified()},
        {"one byte short", mail.substr(0, mail.size() - 1), size,
         Status::sizeMismatch(size - 1, size)},
        {"missing", std::nullopt, size, Status::notBackedUp()},
        {"text but not mail", std::string(mail.size(), 'x'), size, Status::unreadable()},
        {"empty file, empty on server", "", 0, Status::unreadable()},
    };
    for (const Row& row : rows) {
        fs::path file = directory.path() / (std::string(row.name) + ".eml");
        if (row.content) {
            put(file, *row.content);
        }
        EXPECT_EQ(Cleaner::verify(file, row.serverSize), row.expected) << row.name;
    }
    fs::create_directories(directory.path() / "folder.eml");
    EXPECT_EQ(Cleaner::verify(directory.path() / "folder.eml", 4096), Status::notBackedUp());
}

TEST(CleanerFilesByUID, ReadsTheUIDAtTheEndOfEachMessageName) {
    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    const fs::path folder = layout.url("Acct/INBOX");
    for (const char* name : {
             "2024/2024-01-02 Hello 17.eml",       // the usual name
             "2024/Deep/More/Re  spaced   18.EML", // any depth, any case, runs of blanks
             "2023/19.eml",                        // the UID alone
             "2024/Hello 20 (2).eml",              // a collision name: no UID
             "2024/Hello 21.txt",                  // not a message file
             "2024/Hello 99999999999.eml",         // beyond 32 bits
             "2024/Hello -22.eml",                 // not decimal
             "2024/a 23.eml", "2024/b 23.eml",     // two claim one UID: the first in path order
         }) {
        put(folder / name, "x");
    }
    put(layout.url("Acct/Other/Elsewhere 24.eml"), "x");

    EXPECT_EQ(Cleaner::filesByUID(layout, "Acct/INBOX"),
              (std::map<uint32_t, std::string>{
                  {17, "Acct/INBOX/2024/2024-01-02 Hello 17.eml"},
                  {18, "Acct/INBOX/2024/Deep/More/Re  spaced   18.EML"},
                  {19, "Acct/INBOX/2023/19.eml"},
                  {23, "Acct/INBOX/2024/a 23.eml"},
              }));
    EXPECT_TRUE(Cleaner::filesByUID(layout, "Acct/Missing").empty());
}

TEST(CleanerSurvey, PairsEachOldMessageWithItsProvenCopy) {
    CleanupWorld world(false);
    auto add = [&](int n, int64_t date = CleanupWorld::oldDate, bool filed = true,
                   bool recorded = true) {
        return world.add(CleanupWorld::message(n), date, filed, recorded);
    };
    const int64_t old = CleanupWorld::oldDate;
    uint32_t recorded = add(1), markedInside = add(2), byName = add(3, old, true, false);
    uint32_t neverFiled = add(4, old, false), short1 = add(5);
    add(6, CleanupWorld::newDate);
    uint32_t markedOutside = add(7, CleanupWorld::newDate);
    // The state's word counts, not the UID in the name.
    uint32_t renamed = add(8);
    std::filesystem::rename(world.layout.url(world.pathOf(renamed)),
                            world.layout.url("Test/INBOX/Renamed.eml"));
    world.folder.files[std::to_string(renamed)] = "Test/INBOX/Renamed.eml";
    world.saveSync();
    std::filesystem::resize_file(world.layout.url(world.pathOf(short1)),
                                 CleanupWorld::message(5).size() - 1);
    world.mailbox.edit("INBOX", [&](test::FakeMailbox::Folder& folder) {
        folder.messages[markedInside - 1].flags.push_back("\\Deleted");
        folder.messages[markedOutside - 1].flags.push_back("\\Deleted");
    });

    CleanupPlan plan = world.plan();
    auto size = [](int n) {
        return static_cast<int64_t>(CleanupWorld::message(n).size());
    };
    auto item = [&](uint32_t uid, int n, std::optional<std::string> path, Status status) {
        return CleanupItem{uid, size(n), dateFromUnix(CleanupWorld::oldDate), path, status};
    };
    EXPECT_EQ(plan.items,
              (std::vector<CleanupItem>{
                  item(recorded, 1, world.pathOf(recorded), Status::verified()),
                  item(markedInside, 2, world.pathOf(markedInside), Status::verified()),
                  item(byName, 3, world.pathOf(byName), Status::verified()),
                  item(neverFiled, 4, std::nullopt, Status::notBackedUp()),
                  item(short1, 5, world.pathOf(short1), Status::sizeMismatch(size(5) - 1, size(5))),
                  item(renamed, 8, "Test/INBOX/Renamed.eml", Status::verified())}));
    EXPECT_EQ(plan.displayName, "Inbox");
    EXPECT_EQ(plan.otherDeletedOnServer, 1) << "only the mark outside the selection counts";
    EXPECT_FALSE(plan.serverSupportsUIDPlus);

    EXPECT_EQ(world.sent("EXAMINE"), Strings{"EXAMINE \"INBOX\""});
    EXPECT_EQ(world.sent("UID SEARCH"),
              (Strings{"UID SEARCH BEFORE " +
                           IMAPDate::searchString(dateFromUnix(CleanupWorld::limitDate)),
                       "UID SEARCH DELETED"}));
    EXPECT_EQ(world.sent("UID FETCH"),
              Strings{"UID FETCH 1:5,8 (UID RFC822.SIZE INTERNALDATE FLAGS)"});
    EXPECT_TRUE(world.sent("UID STORE").empty());
}

// Renumbered, neither the recorded UIDs nor the UIDs in the names prove anything.
TEST(CleanerSurvey, CopiesCountOnlyUnderTheSameUIDValidity) {
    for (uint32_t validity : {1u, 2u}) {
        CleanupWorld world(true);
        world.addMany(3);
        world.folder.uidValidity = validity;
        world.saveSync();
        CleanupPlan plan = world.plan();
        ASSERT_EQ(plan.items.size(), 3u);
        for (const CleanupItem& item : plan.items) {
            EXPECT_EQ(item.status, validity == 1 ? Status::verified() : Status::notBackedUp())
                << item;
        }
    }
}

// Slice edges are where a message gets lost or fetched twice.
TEST(CleanerSurvey, MetadataGoesInSlicesOf500AndNotAtAllForNothing) {
    CleanupWorld world(true), empty(true);
    for (int i = 0; i < 1001; ++i) {
        world.mailbox.add("INBOX", "Subject: s\r\n\r\nx\r\n");
    }
    for (auto* each : {&world, &empty}) {
        each->mailbox.add("INBOX", "Subject: s\r\n\r\nx\r\n", {}, CleanupWorld::newDate);
    }
    CleanupPlan plan = world.cleaner().survey("INBOX", dateFromUnix(CleanupWorld::limitDate));
    EXPECT_EQ(plan.pending(), 1001);
    EXPECT_EQ(plan.items.back().uid, 1001u);
    const std::string meta = " (UID RFC822.SIZE INTERNALDATE FLAGS)";
    EXPECT_EQ(
        world.sent("UID FETCH"),
        (Strings{"UID FETCH 1:500" + meta, "UID FETCH 501:1000" + meta, "UID FETCH 1001" + meta}));
    EXPECT_TRUE(empty.plan().items.empty());
    EXPECT_TRUE(empty.sent("UID FETCH").empty());
}

struct Released {
    explicit Released(bool uidplus) : world(uidplus) {
        world.addMany(450);
        outside = world.add(CleanupWorld::message(999), CleanupWorld::newDate);
        world.saveSync();
        plan = world.plan();
    }

    std::optional<CleanupError> run() {
        try {
            returned = world.cleaner(200).execute(
                plan, [&](int64_t done, int64_t total) { progress.emplace_back(done, total); },
                stop.get_token());
        } catch (const CleanupError& error) {
            return error;
        }
        return std::nullopt;
    }

    void markOutside() {
        world.mailbox.edit("INBOX", [&](FakeMailbox::Folder& folder) {
            folder.messages.back().flags.push_back("\\Deleted");
        });
    }

    CleanupWorld world;
    uint32_t outside = 0;
    CleanupPlan plan;
    std::stop_source stop;
    int expunges = 0;
    int64_t returned = -1;
    std::vector<std::pair<int64_t, int64_t>> progress;
};

// With UIDPLUS another client's mark is no obstacle, and the marked message stays.
TEST(CleanerExecute, ReleasesEveryProvenMessageChunkByChunk) {
    using Strings = std::vector<std::string>;
    for (bool uidplus : {true, false}) {
        Released release(uidplus);
        const CleanupWorld& world = release.world;
        if (uidplus) {
            release.markOutside();
        }
        ASSERT_EQ(release.plan.verified().size(), 450u);
        EXPECT_EQ(release.run(), std::nullopt);
        EXPECT_EQ(release.returned, 450);
        EXPECT_EQ(world.onServer(), std::vector<uint32_t>{release.outside});
        EXPECT_EQ(release.progress, (std::vector<std::pair<int64_t, int64_t>>{
                                        {0, 450}, {200, 450}, {400, 450}, {450, 450}}));
        EXPECT_EQ(world.sent("SELECT"), Strings{"SELECT \"INBOX\""});
        const std::string ranges[] = {"1:200", "201:400", "401:450"};
        Strings stores, expunges;
        for (const auto& range : ranges) {
            stores.push_back("UID STORE " + range + " +FLAGS.SILENT (\\Deleted)");
            expunges.push_back("UID EXPUNGE " + range);
        }
        EXPECT_EQ(world.sent("UID STORE"), stores);
        EXPECT_EQ(world.sent("UID EXPUNGE"), uidplus ? expunges : Strings{});
        EXPECT_EQ(world.sent("EXPUNGE").size(), uidplus ? 0u : 3u);
        // Without UIDPLUS: the survey's, one before the run and one before each chunk.
        EXPECT_EQ(world.sent("UID SEARCH DELETED").size(), uidplus ? 1u : 1u + 1u + 3u);
        EXPECT_EQ(world.sent("LOGOUT").size(), 2u) << "survey and release";
    }
}

TEST(CleanerExecute, EveryEarlyEndCountsExactly) {
    enum class Act { mark, refuse, stop };
    struct Row {
        const char* name;
        bool uidplus;
        const char* on; // the command at which `act` happens, once `expunges` went; none: before
        int expunges;
        Act act;
        CleanupError error;
        size_t left;
        size_t reports;
    };
    const auto otherMark = CleanupError::otherDeletedMessages(1);
    // clang-format off
    const Row rows[] = {
        {"a mark before, without UIDPLUS", false, nullptr, 0, Act::mark, otherMark, 451, 0},
        {"a mark between chunks, without UIDPLUS", false, "UID SEARCH", 1, Act::mark,
         CleanupError::stopped(200, 450, otherMark.description()), 251, 2},
        {"an EXPUNGE refused: its chunk is unmarked", false, "EXPUNGE", 3, Act::refuse,
         CleanupError::stopped(400, 450, "EXPUNGE failed (NO): quota database locked"), 51, 3},
        {"a stop during a chunk, which is completed", true, "UID STORE", 0, Act::stop,
         CleanupError::stopped(200, 450), 251, 2},
        {"a stop before anything", true, nullptr, 0, Act::stop, CleanupError::stopped(0, 450), 451,
         1},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Released release(row.uidplus);
        auto act = [&](FakeIMAPConnection* connection, const FakeIMAPCommand* command) {
            if (row.act == Act::refuse) {
                connection->send(command->tag + " NO quota database locked");
            } else if (row.act == Act::mark) {
                release.markOutside();
            } else {
                release.stop.request_stop();
            }
            return row.act == Act::refuse;
        };
        if (!row.on) {
            act(nullptr, nullptr);
            // The plan says UIDPLUS: the session counts.
            release.plan.serverSupportsUIDPlus = true;
        }
        release.world.mailbox.intercept = [&](FakeIMAPConnection& connection,
                                              const FakeIMAPCommand& command) {
            release.expunges += command.name == "EXPUNGE" ? 1 : 0;
            return row.on && command.name == row.on && release.expunges == row.expunges &&
                   act(&connection, &command);
        };
        EXPECT_EQ(release.run(), row.error);
        EXPECT_EQ(release.world.onServer().size(), row.left);
        EXPECT_EQ(release.progress.size(), row.reports);
        for (uint32_t marked : release.world.markedOnServer()) {
            EXPECT_EQ(marked, release.outside);
        }
    }
}

TEST(CleanerExecute, WhatChangedSinceTheSurveyStays) {
    using Change = std::function<void(CleanupWorld&)>;
    auto onServer = [](std::function<void(FakeMailbox::Folder&)> change) -> Change {
        return [=](CleanupWorld& world) {
            world.mailbox.edit("INBOX", change);
        };
    };
    struct Row {
        const char* name;
        Change change;
        std::optional<CleanupError> error;
        std::vector<uint32_t> staying;
        bool connects;
    };
    const std::vector<uint32_t> all{1, 2, 3, 4, 5, 6, 7, 8};
    const auto nothing = CleanupError::nothingVerified();
    // clang-format off
    const Row rows[] = {
        {"size changed on the server",
         onServer([](auto& f) { f.messages[5].reportedSize = 1; }), {}, {6}, true},
        {"message gone from the server",
         onServer([](auto& f) { f.messages.erase(f.messages.begin() + 1); }), {}, {}, true},
        {"folder renumbered", onServer([](auto& f) { f.uidValidity = 9; }),
         CleanupError::uidValidityChanged(), all, true},
        {"every file deleted",
         [](auto& world) { fs::remove_all(world.layout.url(world.folderDirectory)); },
         nothing, all, false},
    };
    // clang-format on
    for (const Row& row : rows) {
        for (bool uidplus : {true, false}) {
            SCOPED_TRACE(std::string(row.name) + (uidplus ? " UIDPLUS" : ""));
            CleanupWorld world(uidplus);
            world.addMany(8);
            world.saveSync();
            CleanupPlan plan = world.plan();
            ASSERT_EQ(plan.verified().size(), 8u);
            row.change(world);
            int connections = world.server->connectionCount();
            const auto expectedTotal = static_cast<int64_t>(world.onServer().size()) -
                                       static_cast<int64_t>(row.staying.size());
            std::vector<std::pair<int64_t, int64_t>> progress;
            try {
                int64_t released = world.cleaner(3).execute(
                    plan, [&](int64_t done, int64_t total) { progress.emplace_back(done, total); });
                EXPECT_FALSE(row.error);
                EXPECT_EQ(released, expectedTotal);
                EXPECT_EQ(progress.front(), (std::pair<int64_t, int64_t>{0, expectedTotal}));
            } catch (const CleanupError& error) {
                EXPECT_EQ(row.error, error);
                EXPECT_TRUE(world.sent("UID STORE").empty());
            }
            EXPECT_EQ(world.onServer(), row.staying);
            EXPECT_EQ(world.server->connectionCount(), connections + (row.connects ? 1 : 0));
        }
    }
}

// Randomised: no message leaves the server unless, at its EXPUNGE, its vault copy has the
// server's exact size and reads as mail, whatever damage either side took before and during.

using Message = FakeMailbox::Message;

bool hasDeleted(const Message& message) {
    return std::ranges::count(message.flags, "\\Deleted");
}

struct Scenario {
    explicit Scenario(std::mt19937& random) : random(random), world(coin(0.5)) {}

    bool coin(double p) { return std::bernoulli_distribution(p)(random); }
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }

    uint32_t anyUID() {
        auto uids = world.onServer();
        return uids.empty() ? 0 : uids[static_cast<size_t>(pick(0, std::ssize(uids) - 1))];
    }

    void edit(uint32_t uid, const std::function<void(Message&)>& change) {
        world.mailbox.edit("INBOX", [&](FakeMailbox::Folder& folder) {
            for (Message& m : folder.messages |
                                  std::views::filter([&](auto& each) { return each.uid == uid; })) {
                change(m);
            }
        });
    }

    void markByAnotherClient(uint32_t uid) {
        {
            std::lock_guard lock(mutex);
            otherMarks.insert(uid);
        }
        edit(uid, [](Message& m) {
            if (!hasDeleted(m)) {
                m.flags.push_back("\\Deleted");
            }
        });
    }

    void damage() {
        uint32_t uid = anyUID();
        fs::path file = world.layout.url(world.pathOf(uid));
        bool present = uid != 0 && fs::exists(file);
        switch (uid == 0 ? -1 : pick(0, 5)) {
        case 0:
            fs::remove(file);
            break;
        case 1:
            if (present) {
                fs::resize_file(
                    file, static_cast<uintmax_t>(pick(0, static_cast<int>(fs::file_size(file)))));
            }
            break;
        case 2: // same length, not mail
            if (present) {
                std::ofstream(file, std::ios::binary) << std::string(fs::file_size(file), 'x');
            }
            break;
        case 3: // the server's copy changed
            edit(uid, [&](Message& m) {
                m.body = CleanupWorld::message(pick(100, 999), static_cast<size_t>(pick(0, 3)));
            });
            break;
        case 4:
            markByAnotherClient(uid);
            break;
        case 5:
            world.mailbox.edit("INBOX",
                               [&](FakeMailbox::Folder& f) { f.uidValidity += coin(0.3); });
            break;
        }
    }

    // Before the server acts on an EXPUNGE: whatever is about to go must be proven right now.
    void checkExpunge(const FakeIMAPCommand& command, const std::set<uint32_t>& verified) {
        for (const Message& message : world.mailbox.messages("INBOX")) {
            if (!hasDeleted(message) ||
                (command.name == "UID EXPUNGE" &&
                 !FakeMailbox::inSet(command.arguments[0], message.uid, 0))) {
                continue;
            }
            auto file = world.layout.url(world.pathOf(message.uid));
            std::error_code error;
            bool proven = verified.contains(message.uid) &&
                          std::cmp_equal(fs::file_size(file, error),
                                         message.reportedSize.value_or(std::ssize(message.body))) &&
                          !error && MIMEParser::looksValid(FileIO::read(file));
            std::lock_guard lock(mutex);
            ++checked;
            unproven += proven ? 0 : 1;
        }
    }

    std::mt19937& random;
    CleanupWorld world;
    std::mutex mutex;
    std::set<uint32_t> otherMarks;
    int64_t checked = 0, unproven = 0;
};

TEST(CleanerSafety, NoMessageLeavesWithoutAProvenCopyAtThatMoment) {
    constexpr int scenarios = 300;
    std::mt19937 random(20261122);
    int64_t released = 0;
    for (int index = 0; index < scenarios; ++index) {
        SCOPED_TRACE(index);
        Scenario scenario(random);
        CleanupWorld& world = scenario.world;
        const bool uidplus = world.mailbox.greeting().find("UIDPLUS") != std::string::npos;
        for (int i = 0, count = scenario.pick(0, 10); i < count; ++i) {
            world.add(CleanupWorld::message(i, static_cast<size_t>(scenario.pick(0, 3))),
                      scenario.coin(0.8) ? CleanupWorld::oldDate : CleanupWorld::newDate,
                      scenario.coin(0.85), scenario.coin(0.8));
        }
        world.saveSync();
        for (int i = scenario.pick(0, 2); i > 0; --i) {
            scenario.damage();
        }
        CleanupPlan plan = world.plan();
        for (int i = scenario.pick(0, 3); i > 0; --i) {
            scenario.damage();
        }
        std::set<uint32_t> verified;
        std::ranges::for_each(plan.verified(), [&](auto& item) { verified.insert(item.uid); });

        // Without UIDPLUS no client can help a mark set inside a chunk's STORE..EXPUNGE.
        std::stop_source stop;
        int commands = 0;
        int markAt = scenario.coin(0.4) ? scenario.pick(0, 14) : -1;
        int stopAt = scenario.coin(0.15) ? scenario.pick(0, 14) : -1;
        world.mailbox.intercept = [&](FakeIMAPConnection&, const FakeIMAPCommand& command) {
            int at = commands++;
            bool inChunk = command.name == "UID STORE" || command.name == "EXPUNGE";
            if (at == markAt && (uidplus || !inChunk)) {
                scenario.markByAnotherClient(scenario.anyUID());
            }
            if (at == stopAt) {
                stop.request_stop();
            }
            if (command.name == "EXPUNGE" || command.name == "UID EXPUNGE") {
                scenario.checkExpunge(command, verified);
            }
            return false;
        };

        const size_t before = world.onServer().size();
        int64_t gone = -1;
        try {
            gone = world.cleaner(scenario.pick(0, 4)).execute(plan, {}, stop.get_token());
        } catch (const CleanupError& error) {
            gone = error.released();
        }
        world.mailbox.intercept = nullptr;

        EXPECT_EQ(static_cast<int64_t>(before - world.onServer().size()), gone);
        for (uint32_t uid : world.markedOnServer()) {
            EXPECT_TRUE(scenario.otherMarks.contains(uid)) << "UID " << uid << " left marked";
        }
        EXPECT_EQ(scenario.unproven, 0);
        EXPECT_EQ(scenario.checked, gone);
        released += scenario.checked;
    }
    EXPECT_GT(released, scenarios);
}

TEST(CleanerWithDovecot, ReleasesExactlyTheProvenMessagesAndTouchesNoFile) {
    DovecotFixture& dovecot = DovecotFixture::shared();
    dovecot.addUser("cleanup", "secret");
    const int64_t old = 1577836800, recent = 1700000000; // 2020 and 2023, both sides of `limit`
    const Date limit = dateFromUnix(1609459200);
    std::vector<std::string> mail = test::corpusMail(30, {200, 200'000, true, true, false});
    std::vector<test::SeedMessage> inbox;
    for (size_t i = 0; i < mail.size(); ++i) {
        inbox.push_back({mail[i], i < 20 ? old + static_cast<int64_t>(i) * 86400 : recent});
    }
    test::seedFolders(dovecot, "cleanup", {{"INBOX", inbox}});

    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    MailAccount account;
    account.id = UUID::random();
    account.label = "Cleanup";
    account.username = "cleanup";
    account.server = {"127.0.0.1", dovecot.imapsPort(), false};
    account.folders = {"INBOX"};
    ASSERT_EQ(BackupRunner(layout, account, "secret").run({}).newMessages, 30);

    // One copy lost from the vault: that message can't be proven and must stay.
    FolderState filed = layout.loadSync(account).folders.at("INBOX");
    fs::remove(layout.url(filed.files.at("5")));
    auto vaultBefore = test::snapshotFiles(layout.root, VaultLock::fileName);
    std::string syncBefore = FileIO::read(layout.syncURL(account));

    Cleaner cleaner(layout, account, "secret");
    cleaner.chunkSize = 7;
    CleanupPlan plan = cleaner.plan("INBOX", limit);
    ASSERT_EQ(plan.items.size(), 20u) << plan;
    EXPECT_EQ(plan.verified().size(), 19u) << plan;
    EXPECT_EQ(plan.items[4].status, Status::notBackedUp());
    EXPECT_TRUE(plan.serverSupportsUIDPlus);
    EXPECT_EQ(plan.uidValidity, filed.uidValidity);
    EXPECT_EQ(plan.otherDeletedOnServer, 0);

    std::vector<std::pair<int64_t, int64_t>> progress;
    EXPECT_EQ(cleaner.execute(
                  plan, [&](int64_t done, int64_t total) { progress.emplace_back(done, total); }),
              19);
    EXPECT_EQ(progress.front(), (std::pair<int64_t, int64_t>{0, 19}));
    EXPECT_EQ(progress.back(), (std::pair<int64_t, int64_t>{19, 19}));
    EXPECT_EQ(progress.size(), 1u + 3u) << "chunks of 7, 7 and 5";

    std::vector<uint32_t> left;
    for (const auto& message : dovecot.messages("cleanup", "INBOX")) {
        left.push_back(message.uid);
        EXPECT_TRUE(message.flags.empty()) << "UID " << message.uid;
    }
    EXPECT_EQ(left, (std::vector<uint32_t>{5, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30}));
    EXPECT_EQ(test::snapshotFiles(layout.root, VaultLock::fileName), vaultBefore);
    EXPECT_EQ(FileIO::read(layout.syncURL(account)), syncBefore);
}

} // namespace
