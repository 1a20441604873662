#include "backup/BackupRunner.h"
#include "imap/IMAPError.h"
#include "imap/IMAPParseError.h"
#include "support/AtomicFile.h"
#include "support/Cancellation.h"
#include "support/FakeMailbox.h"
#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/TemporaryDirectory.h"
#include "vault/VaultBusyError.h"
#include "vault/VaultLock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <mutex>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using qs::test::FakeIMAPCommand;
using qs::test::FakeIMAPConnection;
using qs::test::FakeMailbox;
using Strings = std::vector<std::string>;

constexpr std::int64_t marchFifth = 1709632800;

std::string message(std::uint32_t n, size_t padding = 0) {
    auto number = std::to_string(n);
    return "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\nSubject: m" + number + "\r\nMessage-ID: <" +
           number + "@x>\r\n\r\nbody " + number + "\r\n" + std::string(padding, 'x') + "\r\n";
}

test::FileSnapshot messageFiles(const fs::path& root) {
    return test::snapshotFiles(root, ArchiveLayout::metaDirectoryName);
}

class RunnerWithFake : public testing::Test {
protected:
    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    FakeMailbox mail{FakeMailbox::Options{true, "joe", "pw"}};
    std::function<bool(FakeIMAPConnection&, const FakeIMAPCommand&)> misbehave;
    MailAccount account;
    double timeout = 10;
    std::vector<BackupProgress> reports;

    void SetUp() override {
        account.id = UUID::random();
        account.label = "Acct";
        account.username = "joe";
        account.server = {"127.0.0.1", 0, true};
        mail.intercept = [this](FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
            std::lock_guard lock(commandsLock_);
            commands_.push_back(command.name);
            for (const auto& argument : command.arguments) {
                commands_.back() += " " + argument;
            }
            return misbehave && misbehave(connection, command);
        };
    }

    void put(const std::string& folder, std::uint32_t uid, std::string bytes) {
        mail.edit(folder, [&](FakeMailbox::Folder& f) {
            f.messages.push_back({uid, std::move(bytes), {}, marchFifth, {}});
        });
    }

    void fill(const std::string& folder, std::uint32_t count) {
        for (std::uint32_t uid = 1; uid <= count; ++uid) {
            put(folder, uid, message(uid));
        }
    }

    // UIDs run from 1 wherever this is used.
    void expectSavedFilesWhole() {
        auto held = mail.messages("INBOX");
        for (const auto& [uid, path] : state("INBOX").files) {
            EXPECT_EQ(FileIO::read(layout.url(path)), held.at(std::stoul(uid) - 1).body) << path;
        }
    }

    // Whatever the filing thread's timing, a batch is reported only once the state records it.
    BackupSummary backUp(size_t batchCount = 40, const BackupRunner::Progress& also = {},
                         std::stop_token stop = {}) {
        test::FakeIMAPServer server(mail.greeting(), mail.handler());
        auto copy = account;
        copy.server.port = server.port();
        BackupRunner backup(layout, copy, "pw");
        backup.batchCount = batchCount;
        backup.timeout = timeout;
        std::vector<BackupProgress> collected;
        auto check = [&](const BackupProgress& report) {
            collected.push_back(report);
            auto saved = state(report.mailbox).files;
            for (const auto& path : report.newFiles) {
                EXPECT_TRUE(std::ranges::any_of(saved, [&](auto& e) { return e.second == path; }))
                    << path;
                EXPECT_TRUE(fs::exists(layout.url(path))) << path;
            }
            if (also) {
                also(report);
            }
        };
        auto summary = backup.run(check, stop);
        reports = std::move(collected);
        return summary;
    }

    Strings commandsNamed(std::string_view prefix) const {
        Strings found;
        std::lock_guard lock(commandsLock_);
        std::ranges::copy_if(commands_, std::back_inserter(found),
                             [&](const std::string& c) { return c.starts_with(prefix); });
        return found;
    }

    Strings takeCommands() {
        std::lock_guard lock(commandsLock_);
        return std::exchange(commands_, {});
    }

    FolderState state(const std::string& mailbox) {
        return layout.loadSync(account).folders[mailbox];
    }

    mutable std::mutex commandsLock_;
    Strings commands_;
};

TEST_F(RunnerWithFake, VisitsWhatIsChosenAndSelectable) {
    fill("Inbox", 2);
    mail.addFolder("Sent");
    fill("Archive", 1);
    fill("Old", 1);
    mail.addFolder("Archive", 1, {"\\NOSELECT"});
    mail.addFolder("Old", 1, {"\\HasNoChildren", "\\nonexistent"});
    mail.addFolder("INBOX", 1, {"\\NonExistent"});
    account.knownFolders = {{"Inbox", "Inbox", "/", {}}, {"Sent", "Sent", "/", {}}};
    struct Row {
        const char* name;
        Strings chosen;
        bool listNothing;
        Strings examined;
        Strings vanished;
    };
    const Row rows[] = {
        {"empty means INBOX in any case", {}, false, {"Inbox"}, {}},
        {"stored order kept", {"Sent", "Inbox"}, false, {"Sent", "Inbox"}, {}},
        {"unselectable, vanished", {"Archive", "Gone", "Old", "Sent"}, false, {"Sent"}, {"Gone"}},
        {"empty LIST falls back to the known folders", {}, true, {"Inbox"}, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        misbehave = [&](FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
            if (command.name == "LIST" && row.listNothing) {
                connection.send(command.tag + " OK listed");
                return true;
            }
            return false;
        };
        account.folders = row.chosen;
        fs::remove_all(layout.root);
        takeCommands();
        auto summary = backUp();
        Strings expected;
        for (const auto& name : row.examined) {
            expected.push_back("EXAMINE " + name);
            EXPECT_TRUE(state(name).lastRun.has_value()) << name;
        }
        EXPECT_EQ(commandsNamed("EXAMINE"), expected);
        EXPECT_EQ(commandsNamed("UID SEARCH").size(),
                  static_cast<size_t>(std::ranges::count(row.examined, "Inbox")));
        EXPECT_EQ(summary.folders, static_cast<int>(row.examined.size()));
        EXPECT_EQ(summary.vanished, row.vanished);
    }
}

// One message has no told size: it weighs in the plan but not in the total. The run also
// clears this account's leftovers of a killed writer, holds the vault against a second backup
// and survives a LOGOUT answered by a close.
TEST_F(RunnerWithFake, FirstRunFilesEverythingInBatchesAndRerunFilesNothing) {
    fill("INBOX", 100);
    mail.edit("INBOX", [](FakeMailbox::Folder& f) { f.messages[1].reportedSize = -1; });
    const std::string temporary(AtomicFile::temporaryPrefix);
    const fs::path leftovers[] = {
        layout.root / "Acct/INBOX/2023" / (temporary + "77-0-half 1.eml"),
        layout.metaDirectory() /
            (temporary + "77-1-" + layout.syncURL(account).filename().string()),
        layout.metaDirectory() / (temporary + "77-2-sync-other.json")};
    for (const auto& path : leftovers) {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << "{";
    }
    misbehave = [](FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
        if (command.name == "LOGOUT") {
            connection.close();
        }
        return command.name == "LOGOUT";
    };
    std::optional<std::string> holder;
    auto summary = backUp(40, [&](const BackupProgress& report) {
        try {
            if (report.phase == BackupProgress::checking) {
                backUp();
            }
        } catch (const VaultBusyError& busy) {
            holder = busy.holder();
        }
    });
    EXPECT_EQ(holder, VaultLock::describeHolder("backup"));
    EXPECT_FALSE(fs::exists(leftovers[0]));
    EXPECT_FALSE(fs::exists(leftovers[1]));
    EXPECT_TRUE(fs::exists(leftovers[2])) << "another account's";

    const std::string meta = " (UID RFC822.SIZE INTERNALDATE FLAGS";
    EXPECT_EQ(takeCommands(),
              (Strings{"LOGIN joe pw", "LIST  *", "EXAMINE INBOX", "UID SEARCH UID 1:*",
                       "UID FETCH 1:100" + meta + ")", "UID FETCH 1:40" + meta + " BODY.PEEK[])",
                       "UID FETCH 41:80" + meta + " BODY.PEEK[])",
                       "UID FETCH 81:100" + meta + " BODY.PEEK[])", "LOGOUT"}));
    EXPECT_EQ(summary.newMessages, 100);
    auto held = mail.messages("INBOX");
    std::vector<std::int64_t> upTo{0};
    for (const auto& message : held) {
        upTo.push_back(upTo.back() + std::ssize(message.body));
        EXPECT_EQ(FileIO::read(layout.url(summary.files.at(message.uid - 1))), message.body);
    }
    const std::int64_t total = upTo[100];
    const auto secondSize = std::ssize(held[1].body);
    const std::int64_t told = total - secondSize;
    EXPECT_EQ(summary.bytes, total);
    EXPECT_EQ(messageFiles(layout.root).size(), 100u);

    using Row = std::tuple<std::string, int, int, std::int64_t, std::int64_t, size_t>;
    std::vector<Row> rows;
    for (const auto& report : reports) {
        EXPECT_EQ(report.account, "Acct");
        rows.emplace_back(report.phase, report.messagesDone, report.messagesTotal, report.bytesDone,
                          report.bytesTotal, report.newFiles.size());
    }
    EXPECT_EQ(rows, (std::vector<Row>{{"Checking", 0, 0, 0, 0, 0},
                                      {"Measuring", 0, 0, 0, 0, 0},
                                      {"Downloading", 0, 100, 0, told, 0},
                                      {"Downloading", 40, 100, upTo[40], told, 40},
                                      {"Downloading", 80, 100, upTo[80], told, 40},
                                      {"Downloading", 100, 100, total, told, 20},
                                      {"Done", 100, 100, total, told, 0}}));
    EXPECT_TRUE(reports[5].completed.empty());
    EXPECT_EQ(reports[6].completed, (std::map<std::string, int>{{"INBOX", 100}}));

    auto filed = state("INBOX");
    EXPECT_EQ(filed.files.size(), 100u);
    EXPECT_EQ(filed.directory, "Acct/INBOX");
    EXPECT_EQ(filed.files.at("1"), "Acct/INBOX/2024/2024-03-05 m1 1.eml");
    EXPECT_EQ(filed.sizes->at("2"), secondSize);

    auto before = messageFiles(layout.root);
    auto again = backUp();
    EXPECT_EQ(again.newMessages, 0);
    EXPECT_EQ(takeCommands(), (Strings{"LOGIN joe pw", "LIST  *", "EXAMINE INBOX",
                                       "UID SEARCH UID 101:*", "LOGOUT"}));
    EXPECT_EQ(reports.back().completed, (std::map<std::string, int>{{"INBOX", 0}}));
    EXPECT_EQ(messageFiles(layout.root), before);
}

// A connection cut or stalled keeps the batches saved before it; an unasked-for answer is
// ignored; one that would exhaust memory ends the run first. The next run files the rest.
struct FaultCase {
    const char* name;
    std::uint32_t messages;
    size_t batch;
    std::optional<int> dropInBody;
    bool stall;
    std::string before;     // sent ahead of the first batch's bodies
    std::string after;      // sent after them
    std::int64_t toldFirst; // RFC822.SIZE told for UID 1 instead of the true one; 0: the true one
    std::optional<std::string> error;
    size_t saved;
    size_t onDisk; // bodies 41 to 49 reach the disk before a cut, unrecorded
};

class ServerFault : public RunnerWithFake, public testing::WithParamInterface<FaultCase> {};

TEST_P(ServerFault, KeepsWhatWasSavedAndTheNextRunFilesTheRest) {
    const FaultCase& row = GetParam();
    fill("INBOX", row.messages);
    mail.edit("INBOX", [&](FakeMailbox::Folder& f) {
        f.messages[0].body = message(1, 200'000);
        if (row.toldFirst) {
            f.messages[0].reportedSize = row.toldFirst;
        }
    });
    mail.dropInBody = row.dropInBody;
    mail.stallInBody = row.stall;
    mail.beforeFirstBodies = row.before;
    mail.afterFirstBodies = row.after;
    timeout = 0.3;
    std::optional<std::string> error;
    try {
        backUp(row.batch);
    } catch (const IMAPParseError& parse) {
        error = parse.description();
    } catch (const IMAPError& imap) {
        error = imap.kind() == IMAPError::Kind::timeout  ? "timeout"
                : imap.kind() == IMAPError::Kind::closed ? "closed"
                                                         : imap.what();
    }
    EXPECT_EQ(error, row.error);
    auto saved = state("INBOX");
    EXPECT_EQ(saved.files.size(), row.saved);
    EXPECT_EQ(saved.highestUID, row.saved);
    EXPECT_EQ(saved.lastRun.has_value(), !error);
    expectSavedFilesWhole();
    EXPECT_EQ(messageFiles(layout.root).size(), row.onDisk);

    mail.dropInBody.reset();
    mail.beforeFirstBodies = mail.afterFirstBodies = "";
    mail.edit("INBOX", [](FakeMailbox::Folder& f) { f.messages[0].reportedSize.reset(); });
    takeCommands();
    EXPECT_EQ(backUp(row.batch).newMessages, static_cast<int>(row.messages - row.saved));
    EXPECT_EQ(commandsNamed("UID SEARCH"),
              Strings{"UID SEARCH UID " + std::to_string(row.saved + 1) + ":*"});
    EXPECT_EQ(messageFiles(layout.root).size(), row.messages);
    EXPECT_EQ(state("INBOX").files.size(), row.messages);
    expectSavedFilesWhole();
}

std::string forged(std::uint32_t uid) {
    return "* 9 FETCH (UID " + std::to_string(uid) + " BODY[] {6}\r\nforged)\r\n";
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Server, ServerFault,
    testing::Values(
        FaultCase{"Drop", 100, 40, 50, false, {}, {}, 0, "closed", 40, 49},
        FaultCase{"Stall", 100, 40, 50, true, {}, {}, 0, "timeout", 40, 49},
        FaultCase{"UnrequestedUID", 3, 1, {}, false, forged(3), {}, 0, {}, 3, 3},
        FaultCase{"SecondBodyForTheSameUID", 3, 1, {}, false, {}, forged(1), 0, {}, 3, 3},
        FaultCase{"HugeLiteral", 3, 1, {}, false,
                  "* 1 FETCH (UID 1 BODY[] {10000000000000}\r\nFrom: ", {}, 0, "bad literal", 0, 0},
        FaultCase{"BodyFarAboveTheToldSize", 3, 1, {}, false, {}, {}, 1000, "bad literal", 0, 0}),
    [](const testing::TestParamInfo<FaultCase>& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(RunnerWithFake, GreatestPossibleUIDIsNotAskedPast) {
    put("INBOX", 4'294'967'294u, message(1));
    put("INBOX", 4'294'967'295u, message(2));
    EXPECT_EQ(backUp().newMessages, 2);
    EXPECT_EQ(state("INBOX").highestUID, 4'294'967'295u);
    EXPECT_EQ(backUp().newMessages, 0);
    EXPECT_EQ(commandsNamed("UID SEARCH"), Strings{"UID SEARCH UID 1:*"});
}

TEST_F(RunnerWithFake, StopDuringAReportRequestsNoFurtherBatch) {
    fill("INBOX", 60);
    fill("Sent", 3);
    account.folders = {"INBOX", "Sent"};
    std::stop_source stop;
    size_t requestedAtStop = 0;
    auto stopAtFirstBatch = [&](const BackupProgress& report) {
        if (!report.newFiles.empty() && !stop.stop_requested()) {
            requestedAtStop = commandsNamed("UID FETCH").size();
            stop.request_stop();
        }
    };
    EXPECT_THROW(backUp(2, stopAtFirstBatch, stop.get_token()), CancellationError);
    // The batch on its way at the stop may be cut short; every batch before it is saved.
    EXPECT_LE(commandsNamed("UID FETCH").size(), requestedAtStop + 1);
    auto filed = state("INBOX");
    EXPECT_GE(filed.files.size(), 2 * (requestedAtStop - 2));
    EXPECT_EQ(filed.files.size() % 2, 0u);
    expectSavedFilesWhole();
    EXPECT_TRUE(commandsNamed("EXAMINE Sent").empty());
}

TEST_F(RunnerWithFake, HostileSyncRecordsCannotLeadOutOfTheVault) {
    fill("INBOX", 2);
    auto outside = directory.path() / "outside";
    const auto bait = std::string(AtomicFile::temporaryPrefix) + "1-0-x.eml";
    fs::create_directories(outside / "2024");
    std::ofstream(outside / "2024" / bait) << "not ours";
    fs::create_directories(layout.root);
    fs::create_directory_symlink(outside, layout.root / "Link");
    const std::pair<std::string, std::string> cases[] = {
        {"../outside", "outside"},
        {"Link", ""},
    };
    for (const auto& [hostile, inVault] : cases) {
        SCOPED_TRACE(hostile);
        AccountSyncState sync;
        sync.folders["INBOX"] = FolderState{"INBOX", hostile, 1, 0, {}, {}, {}, false};
        layout.saveSync(sync, account);
        if (inVault.empty()) {
            EXPECT_THROW(backUp(), std::system_error);
        } else {
            EXPECT_EQ(backUp().newMessages, 2);
            EXPECT_TRUE(fs::exists(layout.root / inVault / "2024/2024-03-05 m1 1.eml"));
        }
        EXPECT_EQ(Strings{fs::directory_iterator(outside / "2024")->path().filename().string()},
                  Strings{bait});
        EXPECT_EQ(std::distance(fs::directory_iterator(outside / "2024"), {}), 1);
    }
}

TEST_F(RunnerWithFake, BlockedSyncFileThrowsAndLeavesWholeMessages) {
    fill("INBOX", 3);
    fs::create_directories(layout.syncURL(account) / "in the way");
    EXPECT_THROW(backUp(), std::system_error);
    auto files = messageFiles(layout.root);
    EXPECT_EQ(files.size(), 3u);
    for (const auto& [path, file] : files) {
        EXPECT_FALSE(fs::path(path).filename().string().starts_with(AtomicFile::temporaryPrefix));
    }
}

// Neither a temporary file nor another kind of file is taken for a filed message.
TEST_F(RunnerWithFake, FilesBySizeWalksEMLFilesAtAnyDepth) {
    for (const auto& [name, bytes] : {std::pair{"x.eml", "abc"},
                                      {"deep/y.EML", "xyz"},
                                      {"z.eml", "four"},
                                      {"note.txt", "abc"},
                                      {".qs-tmp-1-0-w.eml", "abc"}}) {
        fs::create_directories((layout.url("A/F/2024") / name).parent_path());
        std::ofstream(layout.url("A/F/2024") / name) << bytes;
    }
    EXPECT_EQ(BackupRunner::filesBySize(layout, "A/F"),
              (std::map<std::uint64_t, Strings>{{3, {"A/F/2024/deep/y.EML", "A/F/2024/x.eml"}},
                                                {4, {"A/F/2024/z.eml"}}}));
    EXPECT_TRUE(BackupRunner::filesBySize(layout, "missing").empty());
}

} // namespace
