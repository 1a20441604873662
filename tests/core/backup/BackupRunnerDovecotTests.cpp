// The runner against a real Dovecot over TLS: folders of every kind, real messages from the
// shared corpus, and the conditions a real server and a real process meet (a UIDVALIDITY
// change, a run killed halfway).
#include "backup/BackupRunner.h"
#include "imap/IMAPError.h"
#include "support/AtomicFile.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"
#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/IMAPRelay.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using test::DovecotFixture;

// Mail from the corpus as Dovecot serves it: CRLF line ends. Messages with NUL bytes or bare
// CRs are left out, since a server may rewrite those, and so are the very large ones, to keep
// the test quick.
std::vector<std::string> corpusMail(size_t count) {
    return test::corpusMail(count, {1, 400'000, false, true, true});
}

class RunnerWithDovecot : public testing::Test {
protected:
    DovecotFixture& dovecot = DovecotFixture::shared();
    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    MailAccount account;

    // Dovecot re-reads its users file only when the file's modification second changes, so a
    // user added in the same second as a lookup may stay unknown: all users are added at once,
    // before the first lookup.
    static void SetUpTestSuite() {
        for (const char* user : {"full", "killed"}) {
            DovecotFixture::shared().addUser(user, "secret");
        }
    }

    void makeUser(const std::string& user) {
        account.id = UUID::random();
        account.label = "Mail of " + user;
        account.username = user;
        account.server = {"127.0.0.1", dovecot.imapsPort(), false};
    }

    BackupSummary backUp(std::vector<BackupProgress>* reports = nullptr) {
        BackupRunner runner(layout, account, "secret");
        return runner.run([&](const BackupProgress& report) {
            if (reports) {
                reports->push_back(report);
            }
        });
    }

    // The vault but its records.
    test::FileSnapshot snapshot() const {
        return test::snapshotFiles(layout.root, ArchiveLayout::metaDirectoryName);
    }

    FolderState state(const std::string& mailbox) {
        return layout.loadSync(account).folders.at(mailbox);
    }

    // Every UID of the folder maps to a file that holds exactly the n-th seeded message.
    void expectFiled(const std::string& mailbox, const std::vector<std::string>& messages) {
        auto filed = state(mailbox);
        ASSERT_EQ(filed.files.size(), messages.size()) << mailbox;
        for (const auto& [uid, path] : filed.files) {
            ASSERT_EQ(FileIO::read(layout.url(path)), messages.at(std::stoul(uid) - 1))
                << mailbox << " UID " << uid << " " << path;
        }
    }
};

TEST_F(RunnerWithDovecot, FullBackupRerunAndNewMail) {
    makeUser("full");
    auto mail = corpusMail(300);
    ASSERT_EQ(mail.size(), 300u);
    std::map<std::string, std::vector<std::string>> folders{
        {"INBOX", {mail.begin(), mail.begin() + 200}},
        {"Sent", {mail.begin() + 200, mail.begin() + 240}},
        {"Archive/2024", {mail.begin() + 240, mail.begin() + 270}},
        {"Entw&APw-rfe", {mail.begin() + 270, mail.end()}}};
    test::seedFolders(dovecot, "full", folders);
    account.folders = {"INBOX", "Sent", "Archive/2024", "Entw&APw-rfe"};

    std::vector<BackupProgress> reports;
    auto summary = backUp(&reports);
    EXPECT_EQ(summary.newMessages, 300);
    EXPECT_EQ(summary.folders, 4);
    for (const auto& [name, messages] : folders) {
        expectFiled(name, messages);
    }
    EXPECT_EQ(state("Archive/2024").directory, "Mail of full/Archive - 2024");
    EXPECT_EQ(state("Entw&APw-rfe").directory, "Mail of full/Entwürfe");
    EXPECT_EQ(reports.back().phase, "Done");
    EXPECT_EQ(reports.back().completed,
              (std::map<std::string, int>{
                  {"INBOX", 200}, {"Sent", 40}, {"Archive/2024", 30}, {"Entw&APw-rfe", 30}}));
    EXPECT_EQ(snapshot().size(), 300u);

    // Read-only: no message gained a flag, \Seen included.
    for (const auto& [name, messages] : folders) {
        // doveadm speaks UTF-8 names.
        auto stored = dovecot.messages("full", name == "Entw&APw-rfe" ? "Entwürfe" : name);
        EXPECT_EQ(stored.size(), messages.size()) << name;
        for (const auto& message : stored) {
            EXPECT_TRUE(message.flags.empty()) << name << " UID " << message.uid;
        }
    }

    // A second run opens each folder, finds nothing new and writes nothing.
    auto before = snapshot();
    reports.clear();
    auto again = backUp(&reports);
    EXPECT_EQ(again.newMessages, 0);
    EXPECT_EQ(again.folders, 4);
    std::vector<std::string> phases;
    for (const auto& report : reports) {
        phases.push_back(report.phase);
    }
    EXPECT_EQ(phases,
              (std::vector<std::string>{"Checking", "Checking", "Checking", "Checking", "Done"}));
    EXPECT_EQ(snapshot(), before);

    // New mail is filed alone.
    auto fresh = corpusMail(303);
    std::vector<std::string> added(fresh.begin() + 300, fresh.end());
    const std::pair<std::string, std::string> into[] = {
        {"INBOX", "INBOX"}, {"INBOX", "INBOX"}, {"Entwürfe", "Entw&APw-rfe"}};
    std::vector<std::uint32_t> uids;
    for (size_t n = 0; n < 3; ++n) {
        uids.push_back(dovecot.deliver("full", into[n].first, added[n]));
    }
    auto third = backUp();
    ASSERT_EQ(third.newMessages, 3);
    for (size_t n = 0; n < 3; ++n) {
        EXPECT_EQ(FileIO::read(layout.url(third.files[n])), added[n]);
        EXPECT_EQ(state(into[n].second).files.at(std::to_string(uids[n])), third.files[n]);
    }
    EXPECT_EQ(snapshot().size(), 303u);
}

// A server that truly renumbers a folder (new UIDVALIDITY, every message a new UID), the backup
// of it cut off after each batch in turn, then run to the end: the files already in the vault
// are recognised however many runs it takes, none is written again and none goes missing.
TEST_F(RunnerWithDovecot, RenumberedFolderCutAtEveryBatchBoundaryIsRelinkedWhole) {
    // A cut at an exact command needs the relay, which speaks plain IMAP.
    static DovecotFixture plain(DovecotFixture::Options{true, {}, true});
    plain.addUser("relink", "secret");
    test::IMAPRelay relay(plain.imapPort());
    makeUser("relink");
    account.server = {"127.0.0.1", relay.port(), true};
    auto mail = corpusMail(20);
    test::seedFolders(plain, "relink", {{"INBOX", mail}});
    auto backUpInBatchesOf4 = [&] {
        BackupRunner runner(layout, account, "secret");
        runner.batchCount = 4;
        return runner.run({});
    };
    ASSERT_EQ(backUpInBatchesOf4().newMessages, 20);
    auto before = snapshot();

    // Cut after `batches` of the five body fetches; 0 is a run that isn't cut at all.
    for (int batches = 0; batches < 5; ++batches) {
        SCOPED_TRACE(batches);
        auto uids = plain.renumber("relink", "INBOX");
        ASSERT_EQ(uids.size(), 20u);
        if (batches > 0) {
            // The metadata fetch, then one per batch.
            relay.arm("UID FETCH", 2 + batches, test::IMAPRelay::Action::cut);
            EXPECT_THROW(backUpInBatchesOf4(), IMAPError);
            auto cut = state("INBOX");
            EXPECT_TRUE(cut.relinking);
            EXPECT_EQ(cut.files.size(), size_t(4 * batches));
        }
        relay.arm("nothing", 1, test::IMAPRelay::Action::cut);
        auto summary = backUpInBatchesOf4();
        EXPECT_EQ(summary.newMessages, 0);
        EXPECT_EQ(summary.relinked, 20 - 4 * batches);
        EXPECT_EQ(snapshot(), before);
        auto relinked = state("INBOX");
        EXPECT_FALSE(relinked.relinking);
        ASSERT_EQ(relinked.files.size(), 20u);
        for (size_t n = 0; n < uids.size(); ++n) {
            EXPECT_EQ(FileIO::read(layout.url(relinked.files.at(std::to_string(uids[n])))),
                      mail[n]);
        }
    }
}

TEST_F(RunnerWithDovecot, RunKilledInTheMiddleOfAFolderIsCompletedByTheNext) {
    makeUser("killed");
    auto mail = corpusMail(150);
    test::seedFolders(dovecot, "killed", {{"INBOX", mail}});

    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(pipeFds[0]);
        BackupRunner runner(layout, account, "secret");
        runner.batchCount = 5;
        try {
            runner.run([&](const BackupProgress& report) {
                if (!report.newFiles.empty()) {
                    char byte = 1;
                    (void)!::write(pipeFds[1], &byte, 1);
                }
            });
        } catch (...) {
            ::_exit(2);
        }
        ::_exit(0);
    }
    ::close(pipeFds[1]);
    // Let three batches be saved, then kill the run wherever it is.
    char bytes[3];
    size_t got = 0;
    while (got < sizeof bytes) {
        auto n = ::read(pipeFds[0], bytes + got, sizeof bytes - got);
        ASSERT_GT(n, 0) << "the child ended early";
        got += static_cast<size_t>(n);
    }
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ::close(pipeFds[0]);
    ASSERT_TRUE(WIFSIGNALED(status));

    // What the killed run saved names only whole files.
    auto interrupted = state("INBOX");
    EXPECT_GE(interrupted.files.size(), 15u);
    EXPECT_LT(interrupted.files.size(), 150u);
    EXPECT_FALSE(interrupted.lastRun.has_value());
    for (const auto& [uid, path] : interrupted.files) {
        EXPECT_EQ(FileIO::read(layout.url(path)), mail.at(std::stoul(uid) - 1)) << path;
    }

    auto summary = backUp();
    EXPECT_EQ(summary.newMessages, static_cast<int>(150 - interrupted.files.size()));
    expectFiled("INBOX", mail);
    auto files = snapshot();
    EXPECT_EQ(files.size(), 150u);
    for (const auto& [path, file] : files) {
        EXPECT_EQ(path.find(" (2)"), std::string::npos) << path;
        EXPECT_EQ(fs::path(path).filename().string().find(AtomicFile::temporaryPrefix),
                  std::string::npos)
            << path;
    }
}

} // namespace
