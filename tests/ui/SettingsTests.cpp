// What the Settings window and the welcome guide write must reach the store and outlive the
// program.

#include "app/StoreTest.h"
#include "ui/Onboarding.h"
#include "ui/VaultSettings.h"

namespace qs {
namespace {

using SettingsTest = test::StoreTest;

TEST_F(SettingsTest, FoldersScheduleAndVaultPlaceAreKeptForTheNextLaunch) {
    AppStore store;
    MailAccount account;
    account.id = UUID::random();
    account.label = account.username = "Robin";
    account.server = {"imap.example.org", 993, false};
    account.knownFolders = {
        {"INBOX", "INBOX", "/", {}}, {"Sent", "Sent", "/", {}}, {"Archive", "Archive", "/", {}}};
    store.addAccount(account, "pw");
    VaultSettings view(store, nullptr);
    const QString id = QString::fromStdString(account.id.string());
    // Ticking a folder keeps the INBOX that was taken by default.
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
}

TEST_F(SettingsTest, TheWelcomeGuideOpensByItselfUntilItWasFinishedOnce) {
    AppStore store;
    Onboarding first(store, nullptr);
    EXPECT_TRUE(first.visible());
    first.connectAccount();
    EXPECT_FALSE(first.visible());
    EXPECT_TRUE(store.showAddAccount());
    EXPECT_FALSE(Onboarding(store, nullptr).visible());
}

} // namespace
} // namespace qs
