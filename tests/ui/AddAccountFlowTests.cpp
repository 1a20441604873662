// The add-account flow: its rules as tables, and signing in, choosing and saving against a
// real Dovecot on loopback, as the sheet drives it.

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

// Generous: the waits end when the work does; the limit only keeps a broken run from hanging.
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
    const std::vector<IMAPMailbox> noAll{box("INBOX"), box("Sent", {"\\Sent"}),
                                         box("Archive", {"\\Archive"})};
    const std::vector<IMAPMailbox> plain{box("Projects"), box("INBOX"), box("Sent Items")};
    const struct {
        const char* name;
        const char* preset;
        const std::vector<IMAPMailbox>& mailboxes;
        std::vector<std::string> expected;
    } rows[] = {
        {"gmail takes All Mail alone", "gmail", gmail, {"[Gmail]/All Mail"}},
        {"gmail without All Mail takes the usual roles",
         "gmail",
         marked.size() ? plain : plain,
         {"INBOX"}},
        {"others skip All", "fastmail", marked, {"INBOX", "Sent", "Archive"}},
        {"others take the usual roles of a Gmail server",
         "custom",
         gmail,
         {"INBOX", "[Gmail]/Sent Mail"}},
        {"no roles: INBOX", "custom", plain, {"INBOX"}},
        {"INBOX in any case", "custom", {box("Inbox"), box("Other")}, {"Inbox"}},
        {"nothing listed", "custom", {}, {}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(AccountDraft::defaultFolders(row.preset, row.mailboxes), row.expected)
            << row.name;
    }
}

TEST(AccountDraft, ServerComesFromThePresetOrTheFieldsAndPlaintextOnlyForTheLocalHost) {
    const struct {
        const char* preset;
        const char* host;
        const char* port;
        bool switchOn;
        bool offered;
        IMAPServer expected;
    } rows[] = {
        {"custom", "127.0.0.1", "1143", true, true, {"127.0.0.1", 1143, true}},
        {"custom", " 127.0.0.1 ", "", false, true, {"127.0.0.1", 993, false}},
        {"custom", "localhost", "143", true, false, {"localhost", 143, false}},
        {"custom", "127.0.0.10", "x", true, false, {"127.0.0.10", 993, false}},
        {"custom", "mail.example.org", "70000", true, false, {"mail.example.org", 993, false}},
        {"fastmail", "127.0.0.1", "1143", true, false, {"imap.fastmail.com", 993, false}},
    };
    for (const auto& row : rows) {
        AccountDraft draft{row.preset, "", "u", "p", row.host, row.port, row.switchOn};
        EXPECT_EQ(draft.offersPlaintext(), row.offered) << row.host;
        EXPECT_EQ(draft.server(), row.expected) << row.host;
    }
}

TEST(AccountDraft, ConnectNeedsUserPasswordAndForCustomAHost) {
    const struct {
        const char* preset;
        const char* username;
        const char* password;
        const char* host;
        bool canConnect;
    } rows[] = {
        {"gmail", "ann@example.com", "pw", "", true},
        {"gmail", "  ", "pw", "", false},
        {"gmail", "ann@example.com", "", "", false},
        {"custom", "ann@example.com", "pw", " ", false},
        {"custom", "ann@example.com", "pw", "h", true},
    };
    for (const auto& row : rows) {
        AccountDraft draft{row.preset, "", row.username, row.password, row.host, "993", false};
        EXPECT_EQ(draft.canConnect(), row.canConnect)
            << row.preset << " '" << row.username << "' '" << row.password << "'";
    }
}

TEST(AccountDraft, OnlyGmailPasswordsLoseTheirBlanks) {
    // Google shows its app passwords in groups; other providers' blanks may be real.
    EXPECT_EQ((AccountDraft{"gmail", "", "a", "abcd efgh ijkl", "", "993", false}.passwordForUse()),
              "abcdefghijkl");
    EXPECT_EQ((AccountDraft{"custom", "", "a", "ab cd", "", "993", false}.passwordForUse()),
              "ab cd");
}

class AddAccount : public ::testing::Test {
protected:
    void SetUp() override {
        environment.set("QUERNSTEAD_ARCHIVE_DIR", (dir.path() / "vault").string());
        environment.set("QUERNSTEAD_CREDENTIALS_FILE", credentials().string());
        dovecot.addUser(user, "right-password");
        dovecot.createFolder(user, "Sent Items");
        dovecot.createFolder(user, "Projects");
        if (dovecot.messages(user, "INBOX").empty())
            dovecot.deliver(user, "INBOX", "Subject: hello\r\n\r\nWelcome.\r\n");
    }

    fs::path credentials() const { return dir.path() / "credentials.json"; }

    // Fills the sign-in step as a user would for the local server.
    void fill(AddAccountFlow& flow, const QString& password) {
        flow.choose(QStringLiteral("custom"));
        flow.setUsername(QString::fromStdString(user));
        flow.setPassword(password);
        flow.setHost(QStringLiteral("127.0.0.1"));
        flow.setPort(QString::number(dovecot.imapsPort()));
    }
    static bool signIn(AddAccountFlow& flow) {
        flow.connectToServer();
        return flow.busy() && QTest::qWaitFor([&] { return !flow.busy(); }, waitMilliseconds);
    }

    test::TemporaryDirectory dir;
    test::ScopedEnvironment environment;
    test::DovecotFixture& dovecot = test::DovecotFixture::shared();
    const std::string user = "adder";
};

TEST_F(AddAccount, SigningInChoosesInboxAndSavingKeepsTheAccountAndBacksItUp) {
    AppStore store;
    AddAccountFlow flow(store, nullptr);

    // A wrong password is told in plain words and every field stays.
    fill(flow, QStringLiteral("wrong-password"));
    flow.setLabel(QStringLiteral("Work"));
    ASSERT_TRUE(signIn(flow));
    EXPECT_EQ(flow.step(), AddAccountFlow::Credentials);
    ASSERT_TRUE(flow.errorMessage());
    EXPECT_EQ(flow.errorMessage()->title, "The password wasn’t accepted");
    EXPECT_EQ(flow.label(), "Work");
    EXPECT_EQ(flow.password(), "wrong-password");
    EXPECT_EQ(flow.port(), QString::number(dovecot.imapsPort()));

    // Cancelling after a good sign-in keeps nothing.
    flow.setPassword(QStringLiteral("right-password"));
    ASSERT_TRUE(signIn(flow));
    ASSERT_EQ(flow.step(), AddAccountFlow::Folders)
        << flow.errorMessage().value_or(FriendlyError::Message{}).text();
    flow.reset();
    EXPECT_EQ(flow.step(), AddAccountFlow::Provider);
    EXPECT_TRUE(flow.password().isEmpty() && flow.label().isEmpty());
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_FALSE(fs::exists(credentials()));

    fill(flow, QStringLiteral("right-password"));
    ASSERT_TRUE(signIn(flow));
    ASSERT_EQ(flow.step(), AddAccountFlow::Folders);
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
    EXPECT_EQ(finished.count(), 0);

    environment.set("QUERNSTEAD_CREDENTIALS_FILE", credentials().string());
    QSignalSpy backedUp(&store, &AppStore::backupFinished);
    flow.save();
    EXPECT_EQ(finished.count(), 1);
    ASSERT_EQ(store.accounts().size(), 1u);
    const MailAccount& account = store.accounts()[0];
    EXPECT_EQ(account.label, "Other IMAP") << "the label typed before the reset is gone";
    EXPECT_EQ(account.provider, "custom");
    EXPECT_EQ(account.folders, std::vector<std::string>{"INBOX"});
    EXPECT_EQ(account.knownFolders.size(), 3u);
    EXPECT_EQ(Credentials::password(account), "right-password");
    ASSERT_TRUE(backedUp.count() == 1 || backedUp.wait(waitMilliseconds));
    EXPECT_TRUE(store.backupProblems().empty());
    EXPECT_TRUE(store.accounts()[0].lastBackup.has_value());
}

} // namespace
} // namespace qs
