// Views over the store: what the Settings window and the welcome guide write must reach the
// store and outlive the program; the timeline spine asks the store for months.

#include "app/StoreTest.h"
#include "ui/Onboarding.h"
#include "ui/TimelineSpine.h"
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

using TimelineSpineTest = test::StoreTest;

// Mail in May and March 2024 (April empty) and December 2023. A drag asks for each month once,
// even over the gap; the keys step through months with mail and stop at the ends.
TEST_F(TimelineSpineTest, DragAndKeysScrubOncePerMonthWithMail) {
    int n = 0;
    for (auto [year, month] : {std::pair{2024, 5}, {2024, 3}, {2024, 3}, {2023, 12}}) {
        const std::string name = std::to_string(++n);
        test::put(vault() / "Acct" / "INBOX" / (name + ".eml"),
                  test::message("Note " + name, test::midMonth(year, month)));
    }
    AppStore store;
    ASSERT_TRUE(scan(store));
    TimelineSpine spine;
    spine.setStore(&store);
    spine.setHeight(600);
    const auto g = TimelineSpineGeometry::make(MonthKey{2024, 5}, MonthKey{2023, 12}, 600);
    const auto rowOf = [&](MonthKey m) {
        return g.top.at(m.ordinal()) + g.rowHeight / 2;
    };

    store.scrub({2024, 5});
    int token = store.scrubToken();
    spine.dragTo(rowOf({2024, 5})); // the current month: nothing to ask
    EXPECT_EQ(store.scrubToken(), token);
    // April is empty: the list lands on March, but further moves over April ask nothing more.
    for (int i = 0; i < 3; ++i)
        spine.dragTo(rowOf({2024, 4}) + i);
    EXPECT_EQ(store.scrubToken(), ++token);
    EXPECT_EQ(store.timeline().currentMonth(), (MonthKey{2024, 3}));
    EXPECT_EQ(spine.hover(), (MonthKey{2024, 4}));
    EXPECT_EQ(store.timeline().probe(), (MonthKey{2024, 4}));
    spine.dragTo(5000); // past the bottom: the oldest month
    EXPECT_EQ(store.timeline().currentMonth(), (MonthKey{2023, 12}));
    EXPECT_EQ(store.scrubToken(), ++token);
    spine.endDrag();
    EXPECT_FALSE(spine.dragging());
    EXPECT_EQ(spine.hover(), std::nullopt);

    // Upwards from March must cross empty April, which a scrub would send back to March.
    const std::pair<int, MonthKey> steps[] = {
        {-1, {2023, 12}}, {+1, {2024, 3}}, {+1, {2024, 5}}, {+1, {2024, 5}}, {-1, {2024, 3}}};
    for (const auto& [step, current] : steps) {
        const int before = store.timeline().currentMonth()->ordinal();
        spine.adjust(step);
        EXPECT_EQ(store.timeline().currentMonth(), current);
        token += current.ordinal() != before;
        EXPECT_EQ(store.scrubToken(), token) << "an end asks nothing";
    }
    EXPECT_EQ(spine.accessibleValue().toStdString(), (MonthKey{2024, 3}.title() + ", 2 messages"));
}

} // namespace
} // namespace qs
