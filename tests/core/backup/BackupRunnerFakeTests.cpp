// The runner against the scripted and programmable fakes: exact exchanges, folder choice, batch
// shapes, progress, and the failures a real server rarely shows on demand (a drop halfway
// through a body, a stall, a LOGOUT that goes wrong).
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

#include <csignal>
#include <fstream>
#include <mutex>
#include <set>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using qs::test::FakeIMAPCommand;
using qs::test::FakeIMAPConnection;
using qs::test::FakeMailbox;

// The INTERNALDATE of every message: the day its Date header names.
constexpr std::int64_t marchFifth = 1709632800;

std::string message(std::uint32_t n, const std::string& subject = {}, size_t padding = 0) {
    return "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\nSubject: " +
           (subject.empty() ? "m" + std::to_string(n) : subject) + "\r\nMessage-ID: <" +
           std::to_string(n) + "@x>\r\n\r\nbody " + std::to_string(n) + "\r\n" +
           std::string(padding, 'x') + "\r\n";
}

// `bytes` as IMAP script text: CR and LF escaped.
std::string escaped(const std::string& bytes) {
    std::string text;
    for (char c : bytes) {
        text += c == '\r' ? std::string("\\r") : c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return text;
}

// Every message file of the vault: the records folder left out.
std::vector<std::string> messageFiles(const fs::path& root) {
    std::vector<std::string> files;
    for (const auto& [path, file] : test::snapshotFiles(root, ArchiveLayout::metaDirectoryName)) {
        files.push_back(path);
    }
    return files;
}

class RunnerWithFake : public testing::Test {
protected:
    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    FakeMailbox mail{FakeMailbox::Options{true, "joe", "pw"}};
    bool listNothing = false;   // LIST answered with no mailbox at all
    bool closeOnLogout = false; // LOGOUT answered by closing without a word
    MailAccount account;

    void SetUp() override {
        account.id = UUID::random();
        account.label = "Acct";
        account.username = "joe";
        account.server = {"127.0.0.1", 0, true};
        mail.intercept = [this](FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
            std::string summary = command.name;
            for (const auto& argument : command.arguments) {
                summary += " " + argument;
            }
            std::lock_guard lock(commandsLock_);
            commands_.push_back(summary);
            if (command.name == "LIST" && listNothing) {
                connection.send(command.tag + " OK listed");
                return true;
            }
            if (command.name == "LOGOUT" && closeOnLogout) {
                connection.close();
                return true;
            }
            return false;
        };
    }

    std::unique_ptr<test::FakeIMAPServer> serve() {
        return std::make_unique<test::FakeIMAPServer>(mail.greeting(), mail.handler());
    }

    // Puts `bytes` into a folder under `uid`, which is above all the folder holds.
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

    // The server's INBOX: UID → bytes.
    std::map<std::uint32_t, std::string> inbox() const {
        std::map<std::uint32_t, std::string> messages;
        for (const auto& held : mail.messages("INBOX")) {
            messages[held.uid] = held.body;
        }
        return messages;
    }

    // Every file the INBOX's saved state names holds its message's bytes.
    void expectSavedFilesWhole() {
        auto held = inbox();
        auto saved = layout.loadSync(account);
        for (const auto& [uid, path] : saved.folders["INBOX"].files) {
            EXPECT_EQ(FileIO::read(layout.url(path)), held.at(std::stoul(uid))) << path;
        }
    }

    BackupRunner runner(std::uint16_t port) {
        auto copy = account;
        copy.server.port = port;
        BackupRunner result(layout, copy, "pw");
        result.timeout = 10;
        return result;
    }

    // One run against `mail`, collecting the reports.
    BackupSummary backUp(std::vector<BackupProgress>* reports = nullptr, size_t batchCount = 40) {
        auto server = serve();
        auto backup = runner(server->port());
        backup.batchCount = batchCount;
        return backup.run([&](const BackupProgress& report) {
            if (reports) {
                reports->push_back(report);
            }
        });
    }

    std::vector<std::string> commandsNamed(std::string_view prefix) const {
        std::vector<std::string> found;
        std::lock_guard lock(commandsLock_);
        for (const auto& command : commands_) {
            if (command.starts_with(prefix)) {
                found.push_back(command);
            }
        }
        return found;
    }

    FolderState state(const std::string& mailbox) {
        return layout.loadSync(account).folders.at(mailbox);
    }

    size_t commandCount() const {
        std::lock_guard lock(commandsLock_);
        return commands_.size();
    }

    mutable std::mutex commandsLock_;
    std::vector<std::string> commands_;
};

TEST_F(RunnerWithFake, ExactExchangeIsReadOnly) {
    auto body = message(7);
    test::FakeIMAPServer server(R"(S: * OK [CAPABILITY IMAP4rev1] hi
C: M0001 LOGIN "joe" "pw"
S: M0001 OK [CAPABILITY IMAP4rev1] in
C: M0002 LIST "" "*"
S: * LIST () "/" INBOX
S: M0002 OK done
C: M0003 EXAMINE "INBOX"
S: * 1 EXISTS
S: * OK [UIDVALIDITY 9] v
S: M0003 OK [READ-ONLY] done
C: M0004 UID SEARCH UID 1:*
S: * SEARCH 7
S: M0004 OK done
C: M0005 UID FETCH 7 (UID RFC822.SIZE INTERNALDATE FLAGS)
S: * 1 FETCH (UID 7 RFC822.SIZE )" +
                                std::to_string(body.size()) +
                                R"( INTERNALDATE "05-Mar-2024 10:00:00 +0000" FLAGS ())
S: M0005 OK done
C: M0006 UID FETCH 7 (UID RFC822.SIZE INTERNALDATE FLAGS BODY.PEEK[])
B: * 1 FETCH (UID 7 BODY[] {)" + std::to_string(body.size()) +
                                "}\\r\\n" + escaped(body) +
                                R"()\r\n
S: M0006 OK done
C: M0007 LOGOUT
S: * BYE bye
S: M0007 OK bye
)");
    auto summary = runner(server.port()).run({});
    EXPECT_TRUE(server.waitUntilDone());
    EXPECT_TRUE(server.ok()) << testing::PrintToString(server.failures());
    ASSERT_EQ(summary.files.size(), 1u);
    EXPECT_EQ(FileIO::read(layout.url(summary.files[0])), body);
    auto filed = state("INBOX");
    EXPECT_EQ(filed.uidValidity, 9u);
    EXPECT_EQ(filed.highestUID, 7u);
    EXPECT_EQ(filed.sizes,
              (std::map<std::string, std::int64_t>{{"7", static_cast<std::int64_t>(body.size())}}));
}

struct ChoiceCase {
    const char* name;
    std::vector<std::string> chosen;
    bool listNothing;
    std::vector<std::string> examined;
    int folders;
    std::vector<std::string> vanished;
};

class FolderChoice : public RunnerWithFake, public testing::WithParamInterface<ChoiceCase> {};

TEST_P(FolderChoice, VisitsWhatIsChosenAndSelectable) {
    fill("Inbox", 2);
    fill("Sent", 1);
    fill("Archive", 1);
    fill("Old", 1);
    mail.addFolder("Archive", 1, {"\\NOSELECT"});
    mail.addFolder("Old", 1, {"\\HasNoChildren", "\\nonexistent"});
    // The fake's own INBOX stays out of the choice.
    mail.addFolder("INBOX", 1, {"\\NonExistent"});
    listNothing = GetParam().listNothing;
    account.folders = GetParam().chosen;
    account.knownFolders = {{"Inbox", "Inbox", "/", {}}, {"Sent", "Sent", "/", {}}};
    auto summary = backUp();
    std::vector<std::string> expected;
    for (const auto& name : GetParam().examined) {
        expected.push_back("EXAMINE " + name);
    }
    EXPECT_EQ(commandsNamed("EXAMINE"), expected);
    EXPECT_TRUE(commandsNamed("SELECT").empty());
    EXPECT_EQ(summary.folders, GetParam().folders);
    EXPECT_EQ(summary.vanished, GetParam().vanished);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Rules, FolderChoice,
    testing::Values(
        ChoiceCase{"EmptyMeansInboxInAnyCase", {}, false, {"Inbox"}, 1, {}},
        ChoiceCase{"StoredOrderKept", {"Sent", "Inbox"}, false, {"Sent", "Inbox"}, 2, {}},
        ChoiceCase{"UnselectableAndVanishedSkipped", {"Archive", "Gone", "Old", "Sent"}, false,
                   {"Sent"}, 1, {"Gone"}},
        ChoiceCase{"EmptyListFallsBackToKnownFolders", {}, true, {"Inbox"}, 1, {}}),
    [](const testing::TestParamInfo<ChoiceCase>& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(RunnerWithFake, FirstRunFilesEverythingInBatchesAndRerunFilesNothing) {
    fill("INBOX", 100);
    std::vector<BackupProgress> reports;
    auto summary = backUp(&reports);

    EXPECT_EQ(summary.newMessages, 100);
    EXPECT_EQ(summary.folders, 1);
    EXPECT_EQ(commandsNamed("UID FETCH").size(), 1u + 3u); // one metadata chunk, 40+40+20
    std::int64_t total = 0;
    for (const auto& [uid, bytes] : inbox()) {
        total += static_cast<std::int64_t>(bytes.size());
        EXPECT_EQ(FileIO::read(layout.url(summary.files.at(uid - 1))), bytes);
    }
    EXPECT_EQ(summary.bytes, total);
    EXPECT_EQ(messageFiles(layout.root).size(), 100u);

    std::vector<std::string> phases;
    for (const auto& report : reports) {
        phases.push_back(report.phase);
        EXPECT_EQ(report.account, "Acct");
    }
    EXPECT_EQ(phases,
              (std::vector<std::string>{"Checking", "Measuring", "Downloading", "Downloading",
                                        "Downloading", "Downloading", "Done"}));
    EXPECT_EQ(reports[0].messagesTotal + reports[1].messagesTotal, 0);
    EXPECT_EQ(reports[2].messagesTotal, 100);
    EXPECT_EQ(reports[2].messagesDone, 0);
    EXPECT_EQ(reports[2].bytesTotal, total);
    EXPECT_EQ(reports[3].newFiles.size(), 40u);
    EXPECT_EQ(reports[4].messagesDone, 80);
    EXPECT_EQ(reports[5].newFiles.size(), 20u);
    EXPECT_EQ(reports[5].bytesDone, total);
    EXPECT_TRUE(reports[5].completed.empty());
    EXPECT_EQ(reports[6].messagesDone, 100);
    EXPECT_TRUE(reports[6].newFiles.empty());
    EXPECT_EQ(reports[6].completed, (std::map<std::string, int>{{"INBOX", 100}}));

    auto filed = state("INBOX");
    EXPECT_EQ(filed.highestUID, 100u);
    EXPECT_EQ(filed.files.size(), 100u);
    EXPECT_EQ(filed.directory, "Acct/INBOX");
    ASSERT_TRUE(filed.lastRun.has_value());
    EXPECT_EQ(filed.files.at("1"), "Acct/INBOX/2024/2024-03-05 m1 1.eml");

    auto before = test::snapshotFiles(layout.root, ArchiveLayout::metaDirectoryName);
    size_t commandsBefore = commandCount();
    reports.clear();
    auto again = backUp(&reports);
    EXPECT_EQ(again.newMessages, 0);
    EXPECT_EQ(again.folders, 1);
    EXPECT_EQ(std::vector<std::string>(
                  commands_.begin() + static_cast<std::ptrdiff_t>(commandsBefore), commands_.end()),
              (std::vector<std::string>{"LOGIN joe pw", "LIST  *", "EXAMINE INBOX",
                                        "UID SEARCH UID 101:*", "LOGOUT"}));
    EXPECT_EQ(reports.back().completed, (std::map<std::string, int>{{"INBOX", 0}}));
    EXPECT_EQ(test::snapshotFiles(layout.root, ArchiveLayout::metaDirectoryName), before);
}

// Files are written on a second thread and several batches may share one save; whatever the
// timing, a batch is reported only once the saved state records its files, and those are whole.
TEST_F(RunnerWithFake, EveryReportedFileIsAlreadyInTheSavedState) {
    fill("INBOX", 200);
    size_t reported = 0;
    std::vector<std::string> problems;
    auto server = serve();
    auto backup = runner(server->port());
    backup.batchCount = 7;
    auto summary = backup.run([&](const BackupProgress& report) {
        if (report.newFiles.empty()) {
            return;
        }
        auto saved = layout.loadSync(account).folders["INBOX"];
        std::set<std::string> recorded;
        for (const auto& [uid, path] : saved.files) {
            recorded.insert(path);
        }
        for (const auto& path : report.newFiles) {
            ++reported;
            if (!recorded.contains(path) || !fs::exists(layout.url(path))) {
                problems.push_back(path);
            }
        }
    });
    EXPECT_EQ(summary.newMessages, 200);
    EXPECT_EQ(reported, 200u);
    EXPECT_TRUE(problems.empty()) << testing::PrintToString(problems);
}

TEST_F(RunnerWithFake, EmptyFolderStillFinishes) {

    auto summary = backUp();
    EXPECT_EQ(summary.folders, 1);
    EXPECT_TRUE(commandsNamed("UID SEARCH").empty());
    EXPECT_TRUE(state("INBOX").lastRun.has_value());
}

TEST_F(RunnerWithFake, MessageWithoutSizeWeighsInThePlanButNotInTheTotal) {
    fill("INBOX", 3);
    mail.edit("INBOX", [](FakeMailbox::Folder& f) { f.messages[1].reportedSize = -1; });
    auto held = inbox();
    std::vector<BackupProgress> reports;
    auto summary = backUp(&reports);
    EXPECT_EQ(summary.newMessages, 3);
    EXPECT_EQ(reports.at(2).bytesTotal, static_cast<std::int64_t>(held[1].size() + held[3].size()));
    EXPECT_GT(reports.at(3).bytesDone, reports.at(3).bytesTotal);
    EXPECT_EQ(state("INBOX").sizes->at("2"), static_cast<std::int64_t>(held[2].size()));
}

// A connection that drops or stalls halfway through a body: the finished batches stay saved
// and the next run fetches only the rest.
class BodyCutShort : public RunnerWithFake, public testing::WithParamInterface<bool> {};

TEST_P(BodyCutShort, KeepsFinishedBatchesAndResumes) {
    const bool stall = GetParam();
    fill("INBOX", 100);
    mail.dropInBody = 50;
    mail.stallInBody = stall;
    auto server = serve();
    auto backup = runner(server->port());
    backup.timeout = 0.3;
    try {
        backup.run({});
        FAIL() << "the run should have failed";
    } catch (const IMAPError& error) {
        EXPECT_EQ(error.kind(), stall ? IMAPError::Kind::timeout : IMAPError::Kind::closed);
    }
    auto filed = state("INBOX");
    EXPECT_EQ(filed.highestUID, 40u);
    EXPECT_EQ(filed.files.size(), 40u);
    EXPECT_FALSE(filed.lastRun.has_value());
    // Bodies 41 to 49 reached the disk before the fault, unrecorded.
    EXPECT_EQ(messageFiles(layout.root).size(), 49u);

    mail.dropInBody.reset();
    EXPECT_EQ(backUp().newMessages, 60);
    EXPECT_EQ(commandsNamed("UID SEARCH").back(), "UID SEARCH UID 41:*");
    EXPECT_EQ(messageFiles(layout.root).size(), 100u);
    EXPECT_EQ(state("INBOX").files.size(), 100u);
    expectSavedFilesWhole();
}

INSTANTIATE_TEST_SUITE_P(DropOrStall, BodyCutShort, testing::Bool());

// A LOGOUT answered by a closed connection doesn't fail the run either.
TEST_F(RunnerWithFake, LeftoversOfAKilledWriterAreRemoved) {
    fill("INBOX", 2);
    closeOnLogout = true;
    auto temporary = std::string(AtomicFile::temporaryPrefix);
    fs::create_directories(layout.root / "Acct/INBOX/2023");
    fs::create_directories(layout.metaDirectory());
    auto message = layout.root / "Acct/INBOX/2023" / (temporary + "77-0-half 1.eml");
    auto sync = layout.metaDirectory() /
                (temporary + "77-1-" + layout.syncURL(account).filename().string());
    auto otherAccount = layout.metaDirectory() / (temporary + "77-2-sync-other.json");
    std::ofstream(message) << "Subject: half";
    std::ofstream(sync) << "{";
    std::ofstream(otherAccount) << "{";
    EXPECT_EQ(backUp().newMessages, 2);
    EXPECT_FALSE(fs::exists(message));
    EXPECT_FALSE(fs::exists(sync));
    // Another account's leftovers are that account's runner's business.
    EXPECT_TRUE(fs::exists(otherAccount));
}

TEST_F(RunnerWithFake, UIDValidityChangeRelinksFilesWithoutWritingAcrossADrop) {
    fill("INBOX", 30);
    auto first = backUp();
    // The server rebuilt its index: the same messages under new UIDs and a new UIDVALIDITY.
    mail.edit("INBOX", [](FakeMailbox::Folder& f) {
        f.uidValidity = 2;
        for (auto& held : f.messages) {
            held.uid += 500;
        }
    });
    // Two identical messages keep their two files.
    put("INBOX", 531, message(1));
    std::ofstream(layout.url("Acct/INBOX/2024/2024-03-05 m1 1 (2).eml")) << message(1);
    auto before = test::snapshotFiles(layout.root, ArchiveLayout::metaDirectoryName);
    // The first re-linking run is cut off after two saved batches of 10.
    mail.dropInBody = first.newMessages + 25;
    EXPECT_THROW(backUp(nullptr, 10), IMAPError);
    EXPECT_TRUE(state("INBOX").relinking);
    mail.dropInBody.reset();
    auto summary = backUp(nullptr, 10);
    EXPECT_EQ(summary.newMessages, 0);
    EXPECT_EQ(summary.relinked, 11);
    EXPECT_EQ(summary.bytes, 0);
    EXPECT_EQ(test::snapshotFiles(layout.root, ArchiveLayout::metaDirectoryName), before);
    auto filed = state("INBOX");
    EXPECT_FALSE(filed.relinking);
    EXPECT_EQ(filed.uidValidity, 2u);
    EXPECT_EQ(filed.highestUID, 531u);
    EXPECT_EQ(filed.files.size(), 31u);
    EXPECT_EQ(
        (std::set<std::string>{filed.files.at("501"), filed.files.at("531")}),
        (std::set<std::string>{first.files.at(0), "Acct/INBOX/2024/2024-03-05 m1 1 (2).eml"}));
    EXPECT_EQ(filed.sizes->size(), 31u);
}

TEST_F(RunnerWithFake, DifferentMessageOnTheSameNameGetsACounter) {

    put("INBOX", 1, message(1, "same"));
    backUp();
    // After a UIDVALIDITY change, UID 1 is another message with the same subject and day.
    mail.edit("INBOX", [](FakeMailbox::Folder& f) {
        f.uidValidity = 2;
        f.messages[0].body = message(2, "same");
    });
    auto summary = backUp();
    ASSERT_EQ(summary.files.size(), 1u);
    EXPECT_EQ(summary.files[0], "Acct/INBOX/2024/2024-03-05 same 1 (2).eml");
    EXPECT_EQ(state("INBOX").files.at("1"), summary.files[0]);
    EXPECT_EQ(FileIO::read(layout.url(summary.files[0])), message(2, "same"));
    EXPECT_EQ(FileIO::read(layout.url("Acct/INBOX/2024/2024-03-05 same 1.eml")),
              message(1, "same"));
}

// What a hostile or broken server may send in answer to a body FETCH. An answer nobody asked
// for is ignored; what would exhaust memory ends the run with a parse error before it is held.
struct HostileCase {
    const char* name;
    std::string before;                          // sent ahead of the first batch's bodies
    std::string after;                           // sent after them
    std::map<std::uint32_t, std::uint64_t> told; // RFC822.SIZE told instead of the true one
    std::optional<std::string> error;            // the parse error that ends the run
};

class HostileAnswers : public RunnerWithFake, public testing::WithParamInterface<HostileCase> {};

TEST_P(HostileAnswers, AreIgnoredOrEndTheRunBeforeMemoryGoes) {
    fill("INBOX", 3);
    mail.edit("INBOX", [](FakeMailbox::Folder& f) {
        f.messages[0].body = message(1, {}, 200'000);
        for (const auto& [uid, size] : GetParam().told) {
            f.messages[uid - 1].reportedSize = static_cast<std::int64_t>(size);
        }
    });
    mail.beforeFirstBodies = GetParam().before;
    mail.afterFirstBodies = GetParam().after;
    std::optional<std::string> error;
    try {
        backUp(nullptr, 1);
    } catch (const IMAPParseError& parse) {
        error = parse.description();
    }
    EXPECT_EQ(error, GetParam().error);
    auto saved = layout.loadSync(account).folders["INBOX"];
    EXPECT_EQ(saved.files.size(), error ? 0u : 3u);
    EXPECT_EQ(saved.highestUID, error ? 0u : 3u);
    expectSavedFilesWhole();
    EXPECT_EQ(messageFiles(layout.root).size(), saved.files.size());
}

std::string forged(std::uint32_t uid) {
    return "* 9 FETCH (UID " + std::to_string(uid) + " BODY[] {6}\r\nforged)\r\n";
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Server, HostileAnswers,
    testing::Values(
        HostileCase{"UnrequestedUID", forged(3), {}, {}, {}},
        HostileCase{"SecondBodyForTheSameUID", {}, forged(1), {}, {}},
        HostileCase{"HugeLiteral", "* 1 FETCH (UID 1 BODY[] {10000000000000}\r\nFrom: ", {}, {},
                    "bad literal"},
        HostileCase{"LineWithoutEnd", "* 1 FETCH (UID 1 FLAGS (" + std::string(1'100'000, 'a'), {},
                    {}, "unexpected end"},
        HostileCase{"BodyFarAboveTheToldSize", {}, {}, {{1, 1000}}, "bad literal"}),
    [](const testing::TestParamInfo<HostileCase>& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(RunnerWithFake, GreatestPossibleUIDIsNotAskedPast) {

    put("INBOX", 4'294'967'294u, message(1));
    put("INBOX", 4'294'967'295u, message(2));
    EXPECT_EQ(backUp().newMessages, 2);
    EXPECT_EQ(state("INBOX").highestUID, 4'294'967'295u);
    EXPECT_EQ(backUp().newMessages, 0);
    EXPECT_EQ(commandsNamed("UID SEARCH"), std::vector<std::string>{"UID SEARCH UID 1:*"});
}

// A stop asked for while a batch is reported, which comes from the filing thread while later
// batches download, lets no further batch be requested and no further folder be opened; what
// was saved is whole batches whose files are all there.
TEST_F(RunnerWithFake, StopDuringAReportRequestsNoFurtherBatch) {
    fill("INBOX", 60);
    fill("Sent", 3);
    account.folders = {"INBOX", "Sent"};
    auto server = serve();
    auto backup = runner(server->port());
    backup.batchCount = 2;
    std::stop_source stop;
    size_t requestedAtStop = 0;
    EXPECT_THROW(backup.run(
                     [&](const BackupProgress& report) {
                         if (!report.newFiles.empty() && !stop.stop_requested()) {
                             requestedAtStop = commandsNamed("UID FETCH").size();
                             stop.request_stop();
                         }
                     },
                     stop.get_token()),
                 CancellationError);
    // The metadata fetch, then one per batch; the batch on its way when the stop came may be
    // cut short, every batch before it is saved.
    EXPECT_LE(commandsNamed("UID FETCH").size(), requestedAtStop + 1);
    auto filed = state("INBOX");
    EXPECT_GE(filed.files.size(), 2 * (requestedAtStop - 2));
    EXPECT_EQ(filed.files.size() % 2, 0u);
    expectSavedFilesWhole();
    EXPECT_GE(messageFiles(layout.root).size(), filed.files.size());
    EXPECT_TRUE(commandsNamed("EXAMINE Sent").empty());
}

// A sync record is read back from the disk, where anything may have changed it: whatever its
// directory says, nothing is written, walked or removed outside the vault.
TEST_F(RunnerWithFake, HostileSyncRecordsCannotLeadOutOfTheVault) {
    fill("INBOX", 2);
    auto outside = directory.path() / "outside";
    fs::create_directories(outside / "2024");
    std::ofstream(outside / "2024" / (std::string(AtomicFile::temporaryPrefix) + "1-0-x.eml"))
        << "not ours";
    const std::pair<std::string, std::string> cases[] = {
        {"../outside", "outside"},
        {outside.string(), outside.relative_path().string()},
        {"Link", "Link"},
    };
    fs::create_directories(layout.root);
    fs::create_directory_symlink(outside, layout.root / "Link");
    for (const auto& [hostile, inVault] : cases) {
        SCOPED_TRACE(hostile);
        AccountSyncState sync;
        sync.folders["INBOX"] = FolderState{"INBOX", hostile, 1, 0, {}, {}, {}, false};
        layout.saveSync(sync, account);
        if (hostile == "Link") {
            EXPECT_THROW(backUp(), std::system_error);
        } else {
            EXPECT_EQ(backUp().newMessages, 2);
            EXPECT_TRUE(fs::exists(layout.root / inVault / "2024/2024-03-05 m1 1.eml"));
        }
        EXPECT_EQ(fs::directory_iterator(outside / "2024")->path().filename().string(),
                  std::string(AtomicFile::temporaryPrefix) + "1-0-x.eml");
        EXPECT_EQ(std::distance(fs::directory_iterator(outside / "2024"), {}), 1);
    }
}

TEST_F(RunnerWithFake, SecondBackupOfTheSameVaultWaitsItsTurn) {
    fill("INBOX", 3);
    auto server = serve();
    std::optional<std::string> holder;
    auto first = runner(server->port());
    auto summary = first.run([&](const BackupProgress& report) {
        if (report.phase == BackupProgress::checking) {
            // Another account of the vault, or another process, starts meanwhile.
            try {
                runner(server->port()).run({});
            } catch (const VaultBusyError& busy) {
                holder = busy.holder();
            }
        }
    });
    EXPECT_EQ(holder, VaultLock::describeHolder("backup"));
    EXPECT_EQ(summary.newMessages, 3);
    EXPECT_EQ(messageFiles(layout.root).size(), 3u);
    EXPECT_EQ(commandsNamed("LOGIN").size(), 1u);
}

TEST_F(RunnerWithFake, BlockedMessageFolderThrowsTheFileError) {
    fill("INBOX", 3);
    fs::create_directories(layout.root);
    std::ofstream(layout.root / "Acct") << "in the way";
    EXPECT_THROW(backUp(), std::system_error);
    EXPECT_FALSE(fs::exists(layout.syncURL(account)));
}

TEST_F(RunnerWithFake, BlockedSyncFileThrowsAndLeavesWholeMessages) {
    fill("INBOX", 3);
    // A folder where the sync file goes: it can't be replaced.
    fs::create_directories(layout.syncURL(account) / "in the way");
    EXPECT_THROW(backUp(), std::system_error);
    auto files = messageFiles(layout.root);
    EXPECT_EQ(files.size(), 3u);
    for (const auto& path : files) {
        EXPECT_FALSE(fs::path(path).filename().string().starts_with(AtomicFile::temporaryPrefix));
    }
}

// A file size limit: the write fails with EFBIG partway through a message, and what is left in
// the vault is whole messages only. The limit applies to this process for the run alone (only
// regular files are limited, so the fake's socket and the test's output are untouched); a
// forked child would be the alternative, but fork and a sanitizer's locks don't mix.
TEST_F(RunnerWithFake, FileSizeLimitFailsTheWriteAndLeavesNoPartialFile) {

    for (std::uint32_t uid = 1; uid <= 6; ++uid) {
        put("INBOX", uid, message(uid, {}, uid * 20'000));
    }
    auto server = serve();
    auto backup = runner(server->port());
    backup.batchCount = 2;
    struct rlimit saved {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto previousHandler = ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = saved;
    limit.rlim_cur = 70'000;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    int code = 0;
    try {
        backup.run({});
    } catch (const std::system_error& error) {
        code = error.code().value();
    }
    ::setrlimit(RLIMIT_FSIZE, &saved);
    ::signal(SIGXFSZ, previousHandler);
    EXPECT_EQ(code, EFBIG);
    std::set<std::string> messages;
    for (const auto& [uid, bytes] : inbox()) {
        messages.insert(bytes);
    }
    auto files = messageFiles(layout.root);
    EXPECT_GE(files.size(), 3u);
    EXPECT_LT(files.size(), 6u);
    for (const auto& path : files) {
        EXPECT_TRUE(messages.contains(FileIO::read(layout.url(path)))) << path;
    }
    // The saved state names only files that are there.
    for (const auto& [uid, path] : state("INBOX").files) {
        EXPECT_TRUE(fs::exists(layout.url(path))) << path;
    }
}

TEST(FilesBySize, WalksEMLFilesAtAnyDepth) {
    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path()};
    fs::create_directories(directory.path() / "A/F/2024/deep");
    std::ofstream(directory.path() / "A/F/2024/x.eml") << "abc";
    std::ofstream(directory.path() / "A/F/2024/deep/y.EML") << "xyz";
    std::ofstream(directory.path() / "A/F/2024/z.eml") << "four";
    std::ofstream(directory.path() / "A/F/2024/note.txt") << "abc";
    std::ofstream(directory.path() / "A/F/2024/.qs-tmp-1-0-w.eml") << "abc";
    auto bySize = BackupRunner::filesBySize(layout, "A/F");
    EXPECT_EQ(bySize,
              (std::map<std::uint64_t, std::vector<std::string>>{
                  {3, {"A/F/2024/deep/y.EML", "A/F/2024/x.eml"}}, {4, {"A/F/2024/z.eml"}}}));
    EXPECT_TRUE(BackupRunner::filesBySize(layout, "missing").empty());
    BackupRunner::removeLeftovers(layout, "A/F");
    EXPECT_FALSE(fs::exists(directory.path() / "A/F/2024/.qs-tmp-1-0-w.eml"));
    EXPECT_TRUE(fs::exists(directory.path() / "A/F/2024/x.eml"));
}

} // namespace
