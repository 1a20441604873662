#include "CleanupWorld.h"
#include "cleanup/CleanupError.h"
#include "imap/IMAPDate.h"

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using Status = CleanupItem::Status;
using Strings = std::vector<std::string>;
using test::CleanupWorld;
using test::FakeIMAPCommand;
using test::FakeIMAPConnection;
using test::FakeMailbox;

TEST(CleanupItem, KeptReasonNamesWhyAMessageStays) {
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
}

TEST(CleanupError, TextsTellWhatLeftAndWhatStayed) {
    struct Row {
        CleanupError error;
        std::string text;
    };
    const Row rows[] = {
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
    for (const Row& row : rows) {
        EXPECT_EQ(row.error.description(), row.text);
        EXPECT_STREQ(row.error.what(), row.text.c_str());
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

    ArchiveLayout layout{directory.path()};
    CleanupItem item{1, size, std::nullopt, "exact copy.eml", Status::pending()};
    EXPECT_EQ(Cleaner::verify(item, layout), Status::verified());
    item.localPath.reset();
    EXPECT_EQ(Cleaner::verify(item, layout), Status::notBackedUp());
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
    using Change = std::function<void(CleanupWorld&, CleanupPlan&)>;
    auto onServer = [](std::function<void(FakeMailbox::Folder&)> change) -> Change {
        return [=](CleanupWorld& world, CleanupPlan&) {
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
         [](auto& world, auto&) { fs::remove_all(world.layout.url(world.folderDirectory)); },
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
            row.change(world, plan);
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

} // namespace
