#include "backup/BackupRunner.h"
#include "imap/IMAPError.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"
#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/IMAPRelay.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace qs;
using test::DovecotFixture;

// No NUL bytes or bare CRs, which a server may rewrite, and nothing very large.
const test::CorpusMailFilter plainMail{1, 400'000, false, true, true};

class RunnerWithDovecot : public testing::Test {
protected:
    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    MailAccount account;

    void makeUser(const std::string& user, std::uint16_t port, bool plain) {
        account.id = UUID::random();
        account.label = "Mail of " + user;
        account.username = user;
        account.server = {"127.0.0.1", port, plain};
    }

    BackupSummary backUp(size_t batchCount = 40, const BackupRunner::Progress& progress = {}) {
        BackupRunner runner(layout, account, "secret");
        runner.batchCount = batchCount;
        return runner.run(progress);
    }

    test::FileSnapshot snapshot() const {
        return test::snapshotFiles(layout.root, ArchiveLayout::metaDirectoryName);
    }

    FolderState state(const std::string& mailbox) {
        return layout.loadSync(account).folders.at(mailbox);
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
    auto mail = test::corpusMail(300, plainMail);
    ASSERT_EQ(mail.size(), 300u);
    std::map<std::string, std::vector<std::string>> folders{
        {"INBOX", {mail.begin(), mail.begin() + 200}},
        {"Sent", {mail.begin() + 200, mail.begin() + 240}},
        {"Archive/2024", {mail.begin() + 240, mail.begin() + 270}},
        {"Entw&APw-rfe", {mail.begin() + 270, mail.end()}}};
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

    std::vector<BackupProgress> reports;
    auto summary = backUp(40, [&](const BackupProgress& report) { reports.push_back(report); });
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
    auto files = snapshot(); // the 300 recorded files and nothing else
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
    EXPECT_EQ(snapshot(), files);
}

// A folder truly renumbered, its backup cut after each batch in turn, then finished: the files
// in the vault are recognised, none written again or lost; two identical messages keep two.
TEST_F(RunnerWithDovecot, RenumberedFolderCutAtEveryBatchBoundaryIsRelinkedWhole) {
    static DovecotFixture plain(DovecotFixture::Options{true, {}, true});
    plain.addUser("relink", "secret");
    test::IMAPRelay relay(plain.imapPort());
    makeUser("relink", relay.port(), true);
    auto mail = test::corpusMail(19, plainMail);
    mail.push_back(mail[0]);
    test::seedFolders(plain, "relink", {{"INBOX", mail}});
    ASSERT_EQ(backUp(4).newMessages, 20);
    auto before = snapshot();

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
        EXPECT_EQ(snapshot(), before);
        auto relinked = state("INBOX");
        EXPECT_FALSE(relinked.relinking);
        EXPECT_EQ(relinked.highestUID, uids.back());
        EXPECT_EQ(relinked.sizes->size(), 20u);
        expectFiled("INBOX", mail, uids);
    }
}

} // namespace
