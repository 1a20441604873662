#include "model/AccountDraft.h"
#include "model/AppStore.h"
#include "model/Credentials.h"
#include "ui/AddAccountFlow.h"

#include "app/ScopedEnvironment.h"
#include "support/DovecotFixture.h"
#include "support/TemporaryDirectory.h"

#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include <fstream>

namespace qs {
namespace {

namespace fs = std::filesystem;

// Only keeps a broken run from hanging.
constexpr int waitMilliseconds = 60'000;

IMAPMailbox box(std::string name, std::vector<std::string> attributes = {}) {
    return {name, name, "/", std::move(attributes)};
}

TEST(AccountDraft, DefaultFoldersFollowTheMailboxRoles) {
    const std::vector<IMAPMailbox> gmail{box("INBOX"), box("[Gmail]", {"\\Noselect"}),
                                         box("[Gmail]/All Mail", {"\\HasNoChildren", "\\All"}),
                                         box("[Gmail]/Sent Mail", {"\\Sent"})};
    const std::vector<IMAPMailbox> marked{box("INBOX"), box("Sent", {"\\SENT"}),
                                          box("Archive", {"\\Archive"}), box("All", {"\\All"}),
                                          box("Junk", {"\\Junk"})};
    const std::vector<IMAPMailbox> plain{box("Projects"), box("INBOX"), box("Sent Items")};
    const struct {
        const char* name;
        const char* preset;
        std::vector<IMAPMailbox> mailboxes;
        std::vector<std::string> expected;
    } rows[] = {
        {"gmail takes All Mail alone", "gmail", gmail, {"[Gmail]/All Mail"}},
        {"gmail without All Mail takes the usual roles", "gmail", plain, {"INBOX"}},
        {"others skip All", "fastmail", marked, {"INBOX", "Sent", "Archive"}},
        {"others take the usual roles of a Gmail server",
         "custom",
         gmail,
         {"INBOX", "[Gmail]/Sent Mail"}},
        {"INBOX in any case", "custom", {box("Inbox"), box("Other")}, {"Inbox"}},
        {"nothing listed", "custom", {}, {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(AccountDraft::defaultFolders(row.preset, row.mailboxes), row.expected)
            << row.name;
    }
}

// Connecting needs a user, a password and, for a custom server, a host; plaintext is offered
// only for the local test host.
TEST(AccountDraft, ServerComesFromThePresetOrTheFields) {
    // clang-format off
    const struct {
        const char *preset, *user, *password, *host, *port;
        bool switchOn, canConnect, offered;
        IMAPServer expected;
    } rows[] = {
        {"custom", "u", "p", "127.0.0.1", "1143", true, true, true, {"127.0.0.1", 1143, true}},
        {"custom", "u", "p", " 127.0.0.1 ", "", false, true, true, {"127.0.0.1", 993, false}},
        {"custom", "u", "p", "localhost", "143", true, true, false, {"localhost", 143, false}},
        {"custom", "u", "p", "127.0.0.10", "x", true, true, false, {"127.0.0.10", 993, false}},
        {"custom", "u", "p", "mail.example.org", "70000", true, true, false,
         {"mail.example.org", 993, false}},
        {"custom", "u", "p", " ", "993", false, false, false, {"", 993, false}},
        {"fastmail", "u", "p", "127.0.0.1", "1143", true, true, false,
         {"imap.fastmail.com", 993, false}},
        {"gmail", "  ", "p", "", "", false, false, false, {"imap.gmail.com", 993, false}},
        {"gmail", "u", "", "", "", false, false, false, {"imap.gmail.com", 993, false}},
    };
    // clang-format on
    for (const auto& row : rows) {
        AccountDraft draft{row.preset, "",       row.user,    row.password,
                           row.host,   row.port, row.switchOn};
        EXPECT_EQ(draft.canConnect(), row.canConnect) << row.preset << " " << row.host;
        EXPECT_EQ(draft.offersPlaintext(), row.offered) << row.host;
        EXPECT_EQ(draft.server(), row.expected) << row.host;
    }
}

// Against a real Dovecot, as the sheet drives it: a wrong password, a password store that
// refuses, then the account kept and backed up.
TEST(AddAccount, SigningInChoosesInboxAndSavingKeepsTheAccountAndBacksItUp) {
    test::TemporaryDirectory dir;
    test::ScopedEnvironment environment;
    const fs::path credentials = dir.path() / "credentials.json";
    environment.set("QUERNSTEAD_ARCHIVE_DIR", (dir.path() / "vault").string());
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", credentials.string());
    auto& dovecot = test::DovecotFixture::shared();
    const std::string user = "adder";
    dovecot.addUser(user, "right-password");
    dovecot.createFolder(user, "Sent Items");
    dovecot.createFolder(user, "Projects");
    dovecot.deliver(user, "INBOX", "Subject: hello\r\n\r\nWelcome.\r\n");
    AppStore store;
    AddAccountFlow flow(store, nullptr);
    const auto signIn = [&](const char* password) {
        flow.choose(QStringLiteral("custom"));
        flow.setUsername(QString::fromStdString(user));
        flow.setPassword(password);
        flow.setHost(QStringLiteral("127.0.0.1"));
        flow.setPort(QString::number(dovecot.imapsPort()));
        flow.connectToServer();
        return flow.busy() && QTest::qWaitFor([&] { return !flow.busy(); }, waitMilliseconds);
    };

    flow.setLabel(QStringLiteral("Work"));
    ASSERT_TRUE(signIn("wrong-password"));
    EXPECT_EQ(flow.step(), AddAccountFlow::Credentials);
    ASSERT_TRUE(flow.errorMessage());
    EXPECT_EQ(flow.errorMessage()->title, "The password wasn’t accepted");
    EXPECT_EQ(flow.label(), "Work") << "every field stays";
    EXPECT_EQ(flow.password(), "wrong-password");

    ASSERT_TRUE(signIn("right-password"));
    ASSERT_EQ(flow.step(), AddAccountFlow::Folders)
        << flow.errorMessage().value_or(FriendlyError::Message{}).text();
    EXPECT_FALSE(fs::exists(credentials)) << "signing in keeps nothing";
    EXPECT_EQ(flow.chosenFolders(), std::vector<std::string>{"INBOX"});
    EXPECT_EQ(flow.folderCount(), "1 of 3 folders");

    // A password store that refuses: the words say so, and nothing is added.
    std::ofstream(dir.path() / "plain") << "a file, not a folder";
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "plain" / "c.json").string());
    QSignalSpy finished(&flow, &AddAccountFlow::finished);
    flow.save();
    ASSERT_TRUE(flow.errorMessage());
    EXPECT_EQ(flow.errorMessage()->title, "Couldn’t save the password");
    EXPECT_EQ(flow.step(), AddAccountFlow::Folders);
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_TRUE(store.expandedAccounts().empty());
    EXPECT_FALSE(fs::exists(store.layout().accountsURL()));

    environment.set("QUERNSTEAD_CREDENTIALS_FILE", credentials.string());
    QSignalSpy backedUp(&store, &AppStore::backupFinished);
    flow.save();
    EXPECT_EQ(finished.count(), 1);
    ASSERT_EQ(store.accounts().size(), 1u);
    const MailAccount& account = store.accounts()[0];
    EXPECT_EQ(account.label, "Work");
    EXPECT_EQ(account.folders, std::vector<std::string>{"INBOX"});
    EXPECT_EQ(account.knownFolders.size(), 3u);
    EXPECT_EQ(Credentials::password(account), "right-password");
    ASSERT_TRUE(backedUp.count() == 1 || backedUp.wait(waitMilliseconds));
    EXPECT_TRUE(store.backupProblems().empty());
    EXPECT_TRUE(store.accounts()[0].lastBackup.has_value());
}

} // namespace
} // namespace qs
