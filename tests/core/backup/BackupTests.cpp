#include "backup/BackupPlan.h"
#include "backup/BackupRunner.h"
#include "backup/FilingWorker.h"
#include "backup/FolderHealth.h"
#include "backup/ImportBatch.h"
#include "backup/Importer.h"
#include "imap/IMAPError.h"
#include "imap/IMAPParseError.h"
#include "support/AtomicFile.h"
#include "support/Cancellation.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"
#include "support/FakeMailbox.h"
#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/IMAPRelay.h"
#include "support/TemporaryDirectory.h"
#include "vault/VaultBusyError.h"
#include "vault/VaultLock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <fstream>
#include <future>
#include <mutex>
#include <numeric>
#include <set>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using qs::test::FakeIMAPCommand;
using qs::test::FakeIMAPConnection;
using qs::test::FakeMailbox;
using Strings = std::vector<std::string>;
using test::DovecotFixture;

constexpr std::int64_t marchFifth = 1709632800;

std::string message(std::uint32_t n, size_t padding = 0) {
    auto number = std::to_string(n);
    return "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\nSubject: m" + number + "\r\nMessage-ID: <" +
           number + "@x>\r\n\r\nbody " + number + "\r\n" + std::string(padding, 'x') + "\r\n";
}

void write(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
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
    bool fake = true;
    std::string password = "pw";

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
        std::optional<test::FakeIMAPServer> server;
        auto copy = account;
        if (fake) {
            server.emplace(mail.greeting(), mail.handler());
            copy.server.port = server->port();
        }
        BackupRunner backup(layout, copy, password);
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
        write(path, "{");
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
    EXPECT_EQ(filed.directory, "Acct/INBOX");
    EXPECT_EQ(filed.files.at("1"), "Acct/INBOX/2024/2024-03-05 m1 1.eml");
    EXPECT_EQ(filed.sizes->at("2"), secondSize);

    auto before = messageFiles(layout.root);
    EXPECT_EQ(backUp().newMessages, 0);
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
    write(outside / "2024" / bait, "not ours");
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
        EXPECT_EQ(FileIO::read(outside / "2024" / bait), "not ours");
        EXPECT_EQ(test::snapshotFiles(outside).size(), 1u);
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

// No NUL bytes or bare CRs, which a server may rewrite, and nothing very large.
const test::CorpusMailFilter plainMail{1, 400'000, false, true, true};

class RunnerWithDovecot : public RunnerWithFake {
protected:
    void makeUser(const std::string& user, std::uint16_t port, bool plain) {
        fake = false;
        password = "secret";
        account.label = "Mail of " + user;
        account.username = user;
        account.server = {"127.0.0.1", port, plain};
    }

    // Each UID's file holds its message; `uids` (from 1 when empty) as given.
    void expectFiled(const std::string& mailbox, const std::vector<std::string>& messages,
                     std::vector<std::uint32_t> uids = {}) {
        auto filed = state(mailbox);
        for (size_t n = uids.size(); n < messages.size(); ++n) {
            uids.push_back(static_cast<std::uint32_t>(n + 1));
        }
        ASSERT_EQ(filed.files.size(), messages.size()) << mailbox;
        std::set<std::string> paths;
        for (size_t n = 0; n < uids.size(); ++n) {
            auto path = filed.files.at(std::to_string(uids[n]));
            paths.insert(path);
            EXPECT_EQ(FileIO::read(layout.url(path)), messages[n]) << mailbox << " " << path;
        }
        EXPECT_EQ(paths.size(), messages.size()) << mailbox;
    }
};

// Killed by SIGKILL after three saved batches, completed by the next run; a third finds nothing.
TEST_F(RunnerWithDovecot, KilledRunCompletedThenRerunFindsNothing) {
    DovecotFixture& dovecot = DovecotFixture::shared();
    dovecot.addUser("full", "secret");
    makeUser("full", dovecot.imapsPort(), false);
    auto corpus = test::corpusMail(300, plainMail);
    ASSERT_EQ(corpus.size(), 300u);
    std::map<std::string, std::vector<std::string>> folders{
        {"INBOX", {corpus.begin(), corpus.begin() + 200}},
        {"Sent", {corpus.begin() + 200, corpus.begin() + 240}},
        {"Archive/2024", {corpus.begin() + 240, corpus.begin() + 270}},
        {"Entw&APw-rfe", {corpus.begin() + 270, corpus.end()}}};
    test::seedFolders(dovecot, "full", folders);
    account.folders = {"INBOX", "Sent", "Archive/2024", "Entw&APw-rfe"};

    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(pipeFds[0]);
        try {
            backUp(5, [&](const BackupProgress& report) {
                if (!report.newFiles.empty()) {
                    (void)!::write(pipeFds[1], "x", 1);
                }
            });
        } catch (...) {
            ::_exit(2);
        }
        ::_exit(0);
    }
    ::close(pipeFds[1]);
    char byte = 0;
    for (int batches = 0; batches < 3; ++batches) {
        ASSERT_EQ(::read(pipeFds[0], &byte, 1), 1) << "the child ended early";
    }
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ::close(pipeFds[0]);
    ASSERT_TRUE(WIFSIGNALED(status));
    auto interrupted = state("INBOX");
    const auto saved = static_cast<int>(interrupted.files.size());
    EXPECT_GE(saved, 15);
    EXPECT_LT(saved, 200);
    EXPECT_FALSE(interrupted.lastRun.has_value());

    auto summary = backUp();
    EXPECT_EQ(summary.newMessages, 300 - saved);
    for (const auto& [name, messages] : folders) {
        expectFiled(name, messages);
    }
    EXPECT_EQ(state("Archive/2024").directory, "Mail of full/Archive - 2024");
    EXPECT_EQ(state("Entw&APw-rfe").directory, "Mail of full/Entwürfe");
    EXPECT_EQ(
        reports.back().completed,
        (std::map<std::string, int>{
            {"INBOX", 200 - saved}, {"Sent", 40}, {"Archive/2024", 30}, {"Entw&APw-rfe", 30}}));
    auto files = messageFiles(layout.root); // the 300 recorded files and nothing else
    EXPECT_EQ(files.size(), 300u);
    // No message gained a flag, \Seen included. doveadm speaks UTF-8 names.
    for (const auto& [name, messages] : folders) {
        auto stored = dovecot.messages("full", name == "Entw&APw-rfe" ? "Entwürfe" : name);
        EXPECT_EQ(stored.size(), messages.size()) << name;
        for (const auto& message : stored) {
            EXPECT_TRUE(message.flags.empty()) << name << " UID " << message.uid;
        }
    }

    EXPECT_EQ(backUp().newMessages, 0);
    EXPECT_EQ(messageFiles(layout.root), files);
}

// A folder truly renumbered, its backup cut after each batch in turn, then finished: the files
// in the vault are recognised, none written again or lost; two identical messages keep two.
TEST_F(RunnerWithDovecot, RenumberedFolderCutAtEveryBatchBoundaryIsRelinkedWhole) {
    static DovecotFixture plain(DovecotFixture::Options{true, {}, true});
    plain.addUser("relink", "secret");
    test::IMAPRelay relay(plain.imapPort());
    makeUser("relink", relay.port(), true);
    auto corpus = test::corpusMail(19, plainMail);
    corpus.push_back(corpus[0]);
    test::seedFolders(plain, "relink", {{"INBOX", corpus}});
    ASSERT_EQ(backUp(4).newMessages, 20);
    auto before = messageFiles(layout.root);

    // Cut after `batches` of the five body fetches; 0 is a run that isn't cut at all.
    for (int batches = 0; batches < 5; ++batches) {
        SCOPED_TRACE(batches);
        auto uids = plain.renumber("relink", "INBOX");
        ASSERT_EQ(uids.size(), 20u);
        if (batches > 0) {
            relay.arm("UID FETCH", 2 + batches, test::IMAPRelay::Action::cut);
            EXPECT_THROW(backUp(4), IMAPError);
            auto cut = state("INBOX");
            EXPECT_TRUE(cut.relinking);
            EXPECT_EQ(cut.files.size(), size_t(4 * batches));
        }
        relay.arm("nothing", 1, test::IMAPRelay::Action::cut);
        auto summary = backUp(4);
        EXPECT_EQ(summary.newMessages, 0);
        EXPECT_EQ(summary.relinked, 20 - 4 * batches);
        EXPECT_EQ(summary.bytes, 0);
        EXPECT_EQ(messageFiles(layout.root), before);
        auto relinked = state("INBOX");
        EXPECT_FALSE(relinked.relinking);
        EXPECT_EQ(relinked.highestUID, uids.back());
        EXPECT_EQ(relinked.sizes->size(), 20u);
        expectFiled("INBOX", corpus, uids);
    }
}

using Batches = std::vector<std::vector<std::uint32_t>>;
using Sizes = std::unordered_map<std::uint32_t, std::int64_t>;

std::vector<std::uint32_t> range(std::uint32_t count) {
    std::vector<std::uint32_t> uids(count);
    std::iota(uids.begin(), uids.end(), 1);
    return uids;
}

// Unknown sizes weigh 50,000.
TEST(BackupPlan, BatchesCloseOnCountOrBytesAndChunksOnCountNeverComeEmpty) {
    struct Row {
        std::vector<std::uint32_t> uids;
        Sizes sizes;
        size_t count;
        std::int64_t bytes;
        Batches expected;
    };
    const Row rows[] = {
        {range(5), {{3, 9'000'000}, {5, 7'000'000}}, 40, 6'000'000, {{1, 2}, {3}, {4}, {5}}},
        {range(5), {}, 40, 100'000, {{1, 2}, {3, 4}, {5}}},
        {range(4), {}, 40, 149'999, {{1, 2}, {3, 4}}},
        {{9, 3, 7}, {}, 2, 6'000'000, {{9, 3}, {7}}},
        {{}, {}, 40, 6'000'000, {}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(qs::BackupPlan::batches(row.uids, row.sizes, row.count, row.bytes), row.expected)
            << row.bytes;
    }
    EXPECT_EQ(qs::BackupPlan::chunked(range(5), 2), (Batches{{1, 2}, {3, 4}, {5}}));
    EXPECT_TRUE(qs::BackupPlan::chunked({}, 500).empty());
    EXPECT_EQ(qs::BackupPlan::chunked({4, 5}, 0), (Batches{{4}, {5}}));
}

// `post` returns once the unfinished weight is within the budget.
TEST(FilingWorker, PostKeepsTheUnfinishedWeightWithinTheBudget) {
    qs::FilingWorker worker(10);
    std::promise<void> release;
    auto gate = release.get_future().share();
    worker.post(4, [gate] { gate.wait(); }); // 4 unfinished: back at once
    worker.post(4, [] {});                   // 8: back at once, though the first still runs
    std::atomic<bool> released{false};
    std::atomic<bool> returnedEarly{false};
    std::thread poster([&] {
        worker.post(4, [] {}); // 12: must wait for the first job
        returnedEarly = !released.load();
    });
    released = true;
    release.set_value();
    poster.join();
    EXPECT_FALSE(returnedEarly);

    std::atomic<bool> heavyDone{false};
    worker.post(25, [&] { heavyDone = true; });
    EXPECT_TRUE(heavyDone);
    worker.finish();
}

// Budget 0: each post waits, so the failure shows at once; otherwise later jobs are dropped.
TEST(FilingWorker, FirstFailureDropsLaterJobsAndIsThrownUnchanged) {
    for (size_t budget : {0, 1000}) {
        std::vector<int> ran;
        std::vector<std::string> thrown;
        qs::FilingWorker worker(budget);
        auto post = [&](std::function<void()> job) {
            try {
                worker.post(1, std::move(job));
            } catch (const std::runtime_error& error) {
                thrown.push_back(error.what());
            }
        };
        post([&] { ran.push_back(1); });
        post([] { throw std::runtime_error("disk full"); });
        EXPECT_EQ(thrown.size(), budget == 0 ? 1u : 0u);
        for (int i = 0; i < 50; ++i) {
            post([&] { ran.push_back(3); });
        }
        EXPECT_TRUE(budget != 0 || thrown.size() == 51u);
        try {
            worker.finish();
            ADD_FAILURE() << "finish should throw";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "disk full");
        }
        EXPECT_EQ(ran, std::vector<int>{1}) << budget;
    }
}

using qs::Importer::fingerprint;
using qs::Importer::splitMbox;
using qs::Importer::store;

class ImporterStore : public testing::Test {
protected:
    qs::test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
};

// The names end in the low half of FNV-1a 64 (published vectors: cbf29ce484222325,
// af63dc4c8601ec8c, 85944171f73967e8).
TEST_F(ImporterStore, NamesAndSkips) {
    EXPECT_EQ(fingerprint(""), "84222325");
    EXPECT_EQ(fingerprint("a"), "8601ec8c");
    EXPECT_EQ(fingerprint("foobar"), "f73967e8");
    const std::string dated = "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\n"
                              "Subject: =?utf-8?q?caf=C3=A9_/_menu?=\r\n\r\nhello\r\n";
    const std::string bareHeader = "Message-ID: <x@y>\r\n";
    const std::string text = "just some words\r\nno headers here\r\n";
    const std::string undated = "From: a@b\r\n\r\nbody\r\n";
    const std::string received = "Received: from a by b; Wed, 6 Mar 2024 09:00:00 +0000\r\n"
                                 "Received: from x by a; Wed, 6 Mar 2024 08:59:00 +0000\r\n"
                                 "Date: not a date\r\nSubject: r\r\n\r\nbody\r\n";

    auto sameSize = dated;
    sameSize.back() = ' ';
    auto paths =
        store({dated, "", text, bareHeader, dated, undated, received, sameSize}, "///", layout);
    ASSERT_EQ(paths.size(), 6u);
    // The local day of 10:00 UTC is 5 March in every zone from UTC-10 to UTC+13.
    EXPECT_EQ(paths[0],
              "Imported/Messages/2024/2024-03-05 café menu i" + fingerprint(dated) + ".eml");
    EXPECT_EQ(qs::FileIO::read(layout.url(paths[0])), dated);
    EXPECT_TRUE(paths[1].starts_with("Imported/Messages/")) << paths[1];
    EXPECT_TRUE(paths[1].ends_with(" (no subject) i" + fingerprint(bareHeader) + ".eml"))
        << paths[1];
    EXPECT_EQ(paths[2], paths[0]);
    std::time_t now = std::time(nullptr);
    auto year = std::to_string(std::localtime(&now)->tm_year + 1900);
    EXPECT_TRUE(paths[3].starts_with("Imported/Messages/" + year + "/" + year + "-")) << paths[3];
    // An unreadable Date gives way to the newest Received date, not to today.
    EXPECT_EQ(paths[4], "Imported/Messages/2024/2024-03-06 r i" + fingerprint(received) + ".eml");
    EXPECT_EQ(qs::FileIO::read(layout.url(paths[5])), sameSize);
    EXPECT_EQ(qs::test::snapshotFiles(layout.root).size(), 5u);
}

// A message already in the vault is known by its bytes, whatever name it would get now (here
// another collection, and moved to another day as another time zone would have named it).
TEST_F(ImporterStore, ReimportWritesNothingWhereverTheFirstCopyIs) {
    const std::string dated = "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\nSubject: s\r\n\r\nx\r\n";
    qs::ImportBatch first(layout);
    auto path = first.store({dated}, "A", {}).at(0);
    std::string moved = "Imported/A/2024/2024-03-04 s i" + fingerprint(dated) + ".eml";
    fs::rename(layout.url(path), layout.url(moved));
    first.finish();
    auto before = qs::test::snapshotFiles(layout.root);

    qs::ImportBatch second(layout);
    EXPECT_EQ(second.store({dated, dated}, "B", {}), (std::vector<std::string>{moved, moved}));
    EXPECT_EQ(second.written(), 0);
    EXPECT_EQ(qs::test::snapshotFiles(layout.root), before);
}

TEST_F(ImporterStore, EachNamedPathGivesItsOutcome) {
    using Skip = qs::ImportOutcome::Skip;
    const std::string mail = "Subject: hello\r\n\r\nbody\r\n";
    struct Row {
        const char* name;
        std::vector<std::pair<std::string, std::string>> files;
        std::string target; // below the sources, or absolute
        std::int64_t imported;
        std::int64_t skipped;
        Skip reason;
        std::string firstPathHolds;
    };
    // clang-format off
    const Row rows[] = {
        {"message file", {{"a.eml", mail}}, "a.eml", 1, 0, Skip::none, "Imported/Loose Messages/"},
        {"lines ending in CR alone", {{"mac.eml", "From: a@b\rSubject: Old Mac\r\rbody\r"}},
         "mac.eml", 1, 0, Skip::none, " Old Mac i"},
        {"not mail", {{"x.eml", "\x89PNG\r\n\x1a\n"}}, "x.eml", 0, 1, Skip::notMail, ""},
        {"missing", {}, "missing.eml", 0, 1, Skip::unreadable, ""},
        {"device, which could be read without end", {}, "/dev/zero", 0, 1, Skip::unreadable, ""},
        {"folder that isn't a Maildir", {{"f/a.eml", mail}}, "f", 0, 1, Skip::directory, ""},
        {"empty file", {{"empty.eml", ""}}, "empty.eml", 0, 1, Skip::empty, ""},
        {"mbox without a message", {{"list.mbox", "no separator here\n"}}, "list.mbox", 0, 1,
         Skip::noMessages, ""},
        {"Maildir: cur and new imported, tmp left alone",
         {{"Work/cur/1:2,S", mail}, {"Work/new/2", "Subject: two\r\n\r\nx\r\n"},
          {"Work/new/3", "not mail"}, {"Work/tmp/4", "Subject: half-delivered\r\n\r\n"}},
         "Work/", 2, 1, Skip::none, "Imported/Work/"},
    };
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(layout.root);
        qs::test::TemporaryDirectory sources;
        for (const auto& [name, bytes] : row.files) {
            write(sources.path() / name, bytes);
        }
        qs::ImportBatch batch(layout);
        auto outcome = batch.add(sources.path() / row.target);
        EXPECT_EQ(outcome.imported, row.imported);
        EXPECT_EQ(outcome.skipped, row.skipped);
        EXPECT_EQ(outcome.reason, row.reason);
        EXPECT_EQ(outcome.failed(),
                  row.reason == Skip::unreadable || row.reason == Skip::directory);
        auto files = qs::test::snapshotFiles(layout.root);
        EXPECT_EQ(static_cast<std::int64_t>(files.size()), row.imported);
        if (!files.empty()) {
            EXPECT_NE(files.begin()->first.find(row.firstPathHolds), std::string::npos)
                << files.begin()->first;
        }
        EXPECT_EQ(batch.written(), row.imported);
    }
}

TEST(MboxSplit, SplitsAsExpected) {
    struct Row {
        const char* name;
        std::string mbox;
        std::vector<std::string> messages;
    };
    // clang-format off
    const Row rows[] = {
        {"no separator", "Subject: x\n\nbody\n", {}},
        {"trailing blank lines stripped", "From a\nS: x\n\nbody\n\n\r\n\n", {"S: x\n\nbody\r\n"}},
        {"two", "From a\nS: 1\n\nb1\n\nFrom b\nS: 2\n\nb2\n", {"S: 1\n\nb1\r\n", "S: 2\n\nb2\r\n"}},
        {"From after a text line stays inside", "From a\nS: 1\n\nline\nFrom here on\n",
         {"S: 1\n\nline\nFrom here on\r\n"}},
        {"bytes before the first separator dropped", "junk\n\nFrom a\nS: 1\n", {"S: 1\r\n"}},
        {"CRLF lines", "From a\r\nS: 1\r\n\r\nb1\r\n\r\nFrom b\r\nS: 2\r\n",
         {"S: 1\r\n\r\nb1\r\n", "S: 2\r\n"}},
        {"CR-only lines split and keep their ends", "From a\rS: 1\r\r>From b1\r\rFrom b\rS: 2\r",
         {"S: 1\r\rFrom b1\r", "S: 2\r"}},
        {"one quote before From dropped", "From a\nS: 1\n\n>From me\n>>From you\n",
         {"S: 1\n\nFrom me\n>From you\r\n"}},
        {"quotes not before From kept", "From a\nS: 1\n\n>Fromage\n> From x\nx >From y\n>\n",
         {"S: 1\n\n>Fromage\n> From x\nx >From y\n>\r\n"}},
        {"blank message between separators", "From a\n\nFrom b\nS: 2\n", {"\r\n", "S: 2\r\n"}},
    };
    // clang-format on
    for (const Row& row : rows) {
        EXPECT_EQ(splitMbox(row.mbox), row.messages) << row.name;
    }
}

// A set-aside file never takes the name of an earlier one; other folders' aren't listed.
TEST(FolderHealth, SortsRecordedFilesAndListsWhatWasSetAside) {
    qs::test::TemporaryDirectory dir;
    ArchiveLayout layout{dir.path()};
    qs::FolderState state;
    state.directory = "A/INBOX";
    state.files = {{"1", "A/INBOX/one.eml"},
                   {"2", "A/INBOX/gone.eml"},
                   {"3", "A/INBOX/grown.eml"},
                   {"4", "A/INBOX/unsized.eml"},
                   {"x5", "A/INBOX/one.eml"}};
    state.sizes = std::map<std::string, std::int64_t>{{"1", 3}, {"2", 3}, {"3", 3}};
    for (const auto& [path, bytes] : {std::pair{"A/INBOX/one.eml", "abc"},
                                      {"A/INBOX/grown.eml", "abcd"},
                                      {"A/INBOX/unsized.eml", "abcdef"},
                                      {"A/INBOX/2023/old.eml", "old"},
                                      {"B/INBOX/other.eml", "other"}}) {
        write(layout.url(path), bytes);
    }
    qs::FolderHealth::setAsideFile(layout, "A/INBOX/2023/old.eml");
    write(layout.url("A/INBOX/2023/old.eml"), "new");
    qs::FolderHealth::setAsideFile(layout, "A/INBOX/2023/old.eml");
    qs::FolderHealth::setAsideFile(layout, "B/INBOX/other.eml");

    auto health = qs::FolderHealth::check(layout, state);
    EXPECT_EQ(health.verified, 2);
    EXPECT_EQ(health.missing, (std::map<std::uint32_t, std::string>{{2, "A/INBOX/gone.eml"}}));
    EXPECT_EQ(health.differing, (std::map<std::uint32_t, std::string>{{3, "A/INBOX/grown.eml"}}));
    const std::string aside = ".quernstead/set-aside/A/INBOX/2023/";
    EXPECT_EQ(health.setAside,
              (std::vector<std::string>{aside + "old (2).eml", aside + "old.eml"}));
    EXPECT_EQ(qs::FileIO::read(layout.url(aside + "old.eml")), "old");
    EXPECT_FALSE(fs::exists(layout.url("A/INBOX/2023/old.eml")));
}

} // namespace
