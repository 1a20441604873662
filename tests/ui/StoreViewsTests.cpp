#include "model/AccountDraft.h"
#include "model/CleanupModel.h"
#include "model/Credentials.h"
#include "ui/AddAccountFlow.h"
#include "ui/FreeUpFlow.h"
#include "ui/Onboarding.h"
#include "ui/VaultSettings.h"

#include "app/StoreTest.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"

namespace qs {
namespace {

namespace fs = std::filesystem;
using StoreView = test::StoreTest;
using test::waitMilliseconds;

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
        // clang-format off
        {"gmail takes All Mail alone", "gmail", gmail, {"[Gmail]/All Mail"}},
        {"gmail without All Mail takes the usual roles", "gmail", plain, {"INBOX"}},
        {"others skip All", "fastmail", marked, {"INBOX", "Sent", "Archive"}},
        {"others take the usual roles of a Gmail server", "custom", gmail, {"INBOX", "[Gmail]/Sent Mail"}},
        {"INBOX in any case", "custom", {box("Inbox"), box("Other")}, {"Inbox"}},
        // clang-format on
    };
    for (const auto& row : rows)
        EXPECT_EQ(AccountDraft::defaultFolders(row.preset, row.mailboxes), row.expected)
            << row.name;
}

// Plaintext is offered only for the local test host.
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

TEST(FreeUpFlow, OnlyTheExactPhraseConfirmsAndOnlyAProvenSafeCheckGoesOn) {
    const std::pair<const char*, bool> phrases[] = {{"RELEASE 1234", true},
                                                    {"release 1234", false},
                                                    {"RELEASE 1234 ", false},
                                                    {"RELEASE 1233", false},
                                                    {"RELEASE 1,234", false}};
    for (const auto& [typed, confirms] : phrases)
        EXPECT_EQ(FreeUpFlow::confirms(QString::fromUtf8(typed), 1'234), confirms) << typed;

    // clang-format off
    const struct {
        int64_t checked, items, verified;
        bool safe, expected;
    } rows[] = {{12, 12, 12, true, true}, {11, 12, 11, true, false}, {12, 12, 0, true, false},
                {12, 12, 12, false, false}, {0, 0, 0, true, false}};
    // clang-format on
    for (const auto& row : rows) {
        EXPECT_EQ(FreeUpFlow::canContinue(row.checked, row.items, row.verified, row.safe),
                  row.expected)
            << row.checked << "/" << row.items << " verified " << row.verified;
    }
    EXPECT_EQ(FreeUpFlow::keptSentence(1),
              "1 message was kept on the server because its copy couldn’t be verified.");
}

fs::path vaultCopy(const fs::path& root, uint32_t uid) {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.path().extension() == ".eml" &&
            entry.path().stem().string().ends_with(" " + std::to_string(uid)))
            return entry.path();
    }
    return {};
}

// Against a real Dovecot, as the sheets drive it: a wrong password, a password store that refuses,
// the account kept and backed up; then, one copy deleted and one changed, free-up releases only
// the three proven copies of old mail.
TEST_F(StoreView, AddAccountThenFreeUpReleasesOnlyProvenCopiesFromARealServer) {
    const fs::path credentials = dir.path() / "credentials.json";
    auto& dovecot = test::DovecotFixture::shared();
    const std::string user = "adder";
    dovecot.addUser(user, "right-password");
    dovecot.createFolder(user, "Sent Items");
    dovecot.createFolder(user, "Archive");
    dovecot.deliver(user, "INBOX", "Subject: hello\r\n\r\nWelcome.\r\n");
    // The fifth is the last before the date chosen below, 2022-01-01.
    const auto march2020 = std::chrono::sys_days(std::chrono::year(2020) / 3 / 1);
    std::vector<test::DovecotFixture::Arrival> arrivals;
    for (int days : {0, 30, 60, 90, 120, 1200})
        arrivals.push_back(march2020 + std::chrono::days(days));
    arrivals.push_back(std::chrono::system_clock::now());
    const auto uids =
        dovecot.deliverAll(user, "Archive", test::corpusMail(arrivals.size()), arrivals);
    ASSERT_EQ(uids.size(), arrivals.size());
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
    ASSERT_TRUE(signIn("right-password"));
    ASSERT_EQ(flow.step(), AddAccountFlow::Folders)
        << flow.errorMessage().value_or(FriendlyError::Message{}).text();
    EXPECT_FALSE(fs::exists(credentials)) << "signing in keeps nothing";
    EXPECT_EQ(flow.chosenFolders(), std::vector<std::string>{"INBOX"});
    EXPECT_EQ(flow.folderCount(), "1 of 3 folders");
    flow.setChosen(QStringLiteral("Archive"), true);
    std::ofstream(dir.path() / "plain") << "a file, not a folder";
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "plain" / "c.json").string());
    QSignalSpy finished(&flow, &AddAccountFlow::finished);
    flow.save();
    ASSERT_TRUE(flow.errorMessage());
    EXPECT_EQ(flow.errorMessage()->title, "Couldn’t save the password");
    EXPECT_EQ(flow.step(), AddAccountFlow::Folders);
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_FALSE(fs::exists(store.layout().accountsURL()));
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", credentials.string());
    MailAccount first = test::account("Home", "Home"); // no INBOX known, never backed up
    first.knownFolders = {box("Archive")};
    first.folders = {"Archive"};
    store.addAccount(first, "pw");
    QSignalSpy backedUp(&store, &AppStore::backupFinished);
    flow.save();
    EXPECT_EQ(finished.count(), 1);
    ASSERT_EQ(store.accounts().size(), 2u);
    const MailAccount account = store.accounts()[1];
    EXPECT_EQ(account.label, "Work");
    EXPECT_EQ(account.folders, (std::vector<std::string>{"Archive", "INBOX"}));
    EXPECT_EQ(Credentials::password(account), "right-password");
    ASSERT_TRUE(test::waitFor(backedUp));
    EXPECT_TRUE(store.backupProblems().empty());
    ASSERT_EQ(store.backup().lastMessage, "8 new messages saved");
    EXPECT_TRUE(store.accounts()[1].lastBackup.has_value());
    const fs::path missing = vaultCopy(vault() / "Work" / "Archive", uids[1]);
    const fs::path changed = vaultCopy(vault() / "Work" / "Archive", uids[3]);
    ASSERT_FALSE(missing.empty() || changed.empty());
    const auto serverSize = fs::file_size(changed);
    fs::remove(missing);
    std::ofstream(changed, std::ios::binary | std::ios::app) << "An added line.\r\n";
    FreeUpFlow freeUp(store, nullptr);
    freeUp.start();
    EXPECT_EQ(freeUp.accountId().toStdString(), first.id.string()) << "the first account";
    EXPECT_EQ(freeUp.mailbox(), "Archive") << "no INBOX known: the first chosen folder";
    freeUp.setAccountId(QString::fromStdString(account.id.string()));
    freeUp.setMailbox(QStringLiteral("Archive"));
    freeUp.setBeforeText(QStringLiteral("2022-01-01"));
    const CleanupModel& cleanup = store.cleanup();
    freeUp.verify(); // cancelled during verification: back to choose
    EXPECT_EQ(cleanup.stage(), CleanupStage::verify);
    store.cancelCleanup();
    EXPECT_EQ(cleanup.stage(), CleanupStage::choose);
    EXPECT_FALSE(cleanup.busy());
    freeUp.verify();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !cleanup.busy(); }, waitMilliseconds));
    QVariantMap view = freeUp.view();
    ASSERT_FALSE(view.contains("error")) << view["error"].toMap()["title"].toString().toStdString();
    EXPECT_EQ(view["items"].toLongLong(), 5);
    EXPECT_EQ(view["verified"].toLongLong(), 3);
    const QVariantList kept = view["keptRows"].toList();
    ASSERT_EQ(kept.size(), 2);
    EXPECT_EQ(kept[0].toMap()["status"], "Not in your vault yet — run a backup first");
    EXPECT_EQ(kept[1].toMap()["status"],
              QStringLiteral("Local copy is %1 bytes, the server’s is %2")
                  .arg(fs::file_size(changed))
                  .arg(serverSize));
    EXPECT_EQ(view["keptSentence"],
              "2 messages were kept on the server because their copies couldn’t be verified.");
    freeUp.continueToRelease();
    ASSERT_EQ(cleanup.stage(), CleanupStage::release);
    freeUp.start(); // reopened mid-walk: the walk keeps its account
    EXPECT_EQ(freeUp.accountId().toStdString(), account.id.string());

    // The phrase counts the proven copies, not every old message.
    freeUp.setConfirmation(QStringLiteral("RELEASE 5"));
    freeUp.release();
    EXPECT_FALSE(cleanup.busy()) << "a wrong phrase starts nothing";
    freeUp.setConfirmation(QStringLiteral("RELEASE 3"));
    freeUp.release();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return cleanup.stage() == CleanupStage::done && !cleanup.busy(); },
                        waitMilliseconds));
    view = freeUp.view();
    EXPECT_EQ(view["released"].toMap()["done"].toLongLong(), 3);
    EXPECT_EQ(QString::fromStdString(*cleanup.result()),
              QStringLiteral("3 messages · %1 released from Work › Archive. Your verified "
                             "copies stay in the vault.")
                  .arg(QLocale().formattedDataSize(cleanup.plan()->verifiedBytes(), 1,
                                                   QLocale::DataSizeSIFormat)));
    EXPECT_EQ(store.toast()->text, "Released 3 from the server · copies safe in the vault");
    std::vector<uint32_t> left;
    for (const auto& message : dovecot.messages(user, "Archive"))
        left.push_back(message.uid);
    EXPECT_EQ(left, (std::vector<uint32_t>{uids[1], uids[3], uids[5], uids[6]}));
}

TEST_F(StoreView, FoldersScheduleVaultPlaceAndGuideAreKeptForTheNextLaunch) {
    AppStore store;
    Onboarding first(store, nullptr);
    EXPECT_TRUE(first.visible());
    first.connectAccount();
    EXPECT_FALSE(first.visible());
    EXPECT_TRUE(store.showAddAccount());
    MailAccount account = test::account("Robin", "Robin", "imap.example.org");
    account.knownFolders = {box("INBOX"), box("Sent"), box("Archive")};
    store.addAccount(account, "pw");
    VaultSettings view(store, nullptr);
    const QString id = QString::fromStdString(account.id.string());
    view.setFolderIncluded(id, "Archive", true);
    EXPECT_EQ(store.accounts().front().folders, (std::vector<std::string>{"INBOX", "Archive"}));
    view.setFolderIncluded(id, "INBOX", false);
    EXPECT_EQ(store.accounts().front().folders, (std::vector<std::string>{"Archive"}));
    EXPECT_EQ(view.accounts().front().toMap().value("foldersTitle"), "Folders to back up (1)");
    EXPECT_EQ(view.scheduleHours(), 6);
    EXPECT_FALSE(settings().contains(SettingsKeys::scheduleHours))
        << "the shown default is not stored: the scheduler reads an unset key as one hour";
    view.setScheduleEnabled(true);
    view.setScheduleHours(12);
    const auto moved = dir.path() / "elsewhere";
    std::filesystem::create_directories(moved);
    view.moveVault(QUrl::fromLocalFile(QString::fromStdString(moved.string())));
    EXPECT_EQ(store.archiveRoot(), QString::fromStdString(moved.string()));
    environment.unset("QUERNSTEAD_ARCHIVE_DIR");
    AppStore nextLaunch;
    VaultSettings nextView(nextLaunch, nullptr);
    EXPECT_TRUE(nextView.scheduleEnabled());
    EXPECT_EQ(nextView.scheduleHours(), 12);
    EXPECT_EQ(nextLaunch.archiveRoot(), QString::fromStdString(moved.string()));
    EXPECT_FALSE(Onboarding(nextLaunch, nullptr).visible());
}

} // namespace
} // namespace qs
