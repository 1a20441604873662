// The main window loaded for real (offscreen) on a small vault, driven by the keyboard and by
// the store as a user would drive it.

#include "model/AppStore.h"
#include "model/SettingsKeys.h"
#include "support/QtTestEnvironment.h"
#include "support/QuickWindow.h"
#include "support/TemporaryDirectory.h"
#include "support/WebEngineStart.h"
#include "ui/AddAccountFlow.h"
#include "ui/CommandTable.h"
#include "ui/Onboarding.h"

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlListReference>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QtQml/QQmlExtensionPlugin>
#include <QtQml/qqml.h>
#include <gtest/gtest.h>

#include <fstream>

Q_IMPORT_QML_PLUGIN(QuernsteadPlugin)

namespace qs {
namespace {

// One application on the offscreen platform and a private home for all of test_ui; the window
// holds the reader's web engine, which starts before the application object.
[[maybe_unused]] const auto* registered = [] {
    test::startWebEngine();
    return ::testing::AddGlobalTestEnvironment(
        new test::QtTestEnvironment<QGuiApplication>("test_ui", true));
}();

void writeMessage(const std::filesystem::path& vault, const std::string& name,
                  const std::string& date, const std::string& subject) {
    const auto path = vault / "Robin" / "INBOX" / date.substr(date.size() - 20, 4) / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "From: Ada <ada@example.org>\r\nTo: robin@example.org\r\nDate: " << date
                        << "\r\nSubject: " << subject << "\r\n\r\nHello there.\r\n";
}

class Window : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        vault_ = new test::TemporaryDirectory;
        writeMessage(vault_->path(), "a.eml", "Tue, 16 Jan 2024 10:00:00 +0000", "Harbour tickets");
        writeMessage(vault_->path(), "b.eml", "Mon, 08 Jan 2024 10:00:00 +0000", "Garden plan");
        writeMessage(vault_->path(), "c.eml", "Fri, 10 Mar 2023 10:00:00 +0000", "Lantern repair");
        writeMessage(vault_->path(), "d.eml", "Thu, 02 Mar 2023 10:00:00 +0000", "Orchard map");
        writeMessage(vault_->path(), "e.eml", "Sat, 06 Jun 2020 10:00:00 +0000", "Old letter");
        ::setenv("QUERNSTEAD_ARCHIVE_DIR", vault_->path().c_str(), 1);
        ::setenv("QUERNSTEAD_CREDENTIALS_FILE", (vault_->path() / "none.json").c_str(), 1);

        // At a first launch the welcome guide would cover the window.
        QSettings(SettingsKeys::organisation, SettingsKeys::application)
            .setValue(SettingsKeys::didShowWelcome, true);
        engine_ = new QQmlApplicationEngine;
        window_ = test::showMainWindow(*engine_, AppStore::shared());
        ASSERT_NE(window_, nullptr);
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window_));
        // The store read the environment when it was made; the other tests make their own.
        ::unsetenv("QUERNSTEAD_ARCHIVE_DIR");
        ::unsetenv("QUERNSTEAD_CREDENTIALS_FILE");
        QSignalSpy scanned(&AppStore::shared(), &AppStore::scanFinished);
        AppStore::shared().reloadArchive();
        ASSERT_TRUE(scanned.wait(20'000));
    }
    static void TearDownTestSuite() {
        delete engine_;
        delete vault_;
    }
    void SetUp() override {
        store().setQuery("");
        store().showEverything();
        store().setSelectedPath(std::nullopt);
        QCoreApplication::processEvents();
    }

    static void type(const char* text) {
        for (const char* c = text; *c; ++c)
            QTest::keyClick(window_, *c);
    }
    static AppStore& store() { return AppStore::shared(); }
    static QQuickItem* item(const char* name, QQuickItem* from = nullptr) {
        return test::itemsNamed(from ? from : window_->contentItem(), name).value(0);
    }

    static inline test::TemporaryDirectory* vault_ = nullptr;
    static inline QQmlApplicationEngine* engine_ = nullptr;
    static inline QQuickWindow* window_ = nullptr;
};

TEST_F(Window, TheSearchFieldTakesQueriesButNotTheShelfKeys) {
    item("searchField")->forceActiveFocus();
    const std::pair<Qt::Key, const char*> shelves[] = {{Qt::Key_4, "Needs a Second Look"},
                                                       {Qt::Key_1, "Everything"}};
    for (const auto& [key, title] : shelves) {
        QTest::keyClick(window_, key, Qt::ControlModifier);
        EXPECT_EQ(store().sidebarTitle(), QLatin1String(title));
        EXPECT_TRUE(item("searchField")->hasActiveFocus());
        EXPECT_TRUE(store().query().empty()) << "the digit must not be typed into the field";
    }
    type("lant");
    EXPECT_EQ(store().query(), "lant");
    ASSERT_EQ(store().visible().size(), 1u);
    EXPECT_EQ(item("listSubtitle")->property("text").toString(), "1 of 5 messages");
    type("ernx");
    EXPECT_TRUE(store().visible().empty());
    QQuickItem* empty = item("listEmpty");
    EXPECT_TRUE(empty->isVisible());
    EXPECT_EQ(empty->property("title").toString(), "Nothing matches “lanternx”");
    EXPECT_TRUE(item("saveSearch")->isVisible());
}

TEST_F(Window, TheAddAccountSheetOpensOnItsFlagAndTypingReachesItsFlow) {
    QObject* sheet = window_->findChild<QObject*>(QStringLiteral("addAccountSheet"));
    ASSERT_NE(sheet, nullptr);
    auto* flow = sheet->property("flow").value<AddAccountFlow*>();
    const auto inSheet = [&](const char* name) {
        return item(name, sheet->property("contentItem").value<QQuickItem*>());
    };
    store().setShowAddAccount(true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return sheet->property("opened").toBool(); }, 5'000));
    QQuickItem* card = inSheet("provider-custom");
    ASSERT_TRUE(QTest::qWaitFor([&] { return card->width() > 0; }, 5'000));
    // The sheet may still be sliding in: click where the card is now until the click lands.
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            const QPoint centre =
                card->mapToScene(QPointF(card->width() / 2, card->height() / 2)).toPoint();
            QTest::mouseMove(window_, centre);
            QTest::mouseClick(window_, Qt::LeftButton, {}, centre, 20);
            return flow->step() == AddAccountFlow::Credentials;
        },
        5'000));
    QQuickItem* host = inSheet("hostField")->childItems().value(1);
    host->forceActiveFocus();
    EXPECT_FALSE(inSheet("plaintextRow")->isVisible());
    type("127.0.0.1");
    EXPECT_EQ(flow->host(), "127.0.0.1");
    EXPECT_TRUE(inSheet("plaintextRow")->isVisible());

    // Escape is Cancel: the flag drops and nothing typed is kept.
    QTest::keyClick(window_, Qt::Key_Escape);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !sheet->property("visible").toBool(); }, 5'000));
    EXPECT_FALSE(store().showAddAccount());
    EXPECT_EQ(flow->step(), AddAccountFlow::Provider);
    EXPECT_TRUE(flow->host().isEmpty());
    EXPECT_TRUE(store().accounts().empty());
}

// A menu item of the menu bar by its object name.
QObject* menuItem(QQuickWindow& window, const QString& name) {
    const auto bars = test::itemsNamed(window.contentItem(), "appMenuBar");
    if (bars.isEmpty())
        return nullptr;
    QQmlListReference menus(bars.first(), "menus");
    for (qsizetype m = 0; m < menus.count(); ++m) {
        QQmlListReference items(menus.at(m), "contentData");
        for (qsizetype i = 0; i < items.count(); ++i) {
            if (items.at(i)->objectName() == name)
                return items.at(i);
        }
    }
    return nullptr;
}

TEST_F(Window, MenuItemsFollowTheStoreAndTheGuideShowsTheirKeys) {
    auto* next = menuItem(*window_, "menu:nextMessage");
    auto* backUp = menuItem(*window_, "menu:backUpNow");
    ASSERT_NE(next, nullptr);
    ASSERT_NE(backUp, nullptr);
    EXPECT_EQ(next->property("text").toString(), "Next Message");
    EXPECT_TRUE(next->property("enabled").toBool());
    EXPECT_FALSE(backUp->property("enabled").toBool()) << "the vault has no accounts";
    store().setQuery("nothing like this");
    EXPECT_FALSE(next->property("enabled").toBool());
    EXPECT_EQ(menuItem(*window_, "menu:showVault")->property("text").toString(),
              "Show Vault in File Manager");

    // The guide's keycaps show the keys of the menus.
    auto* guide = window_->findChild<QObject*>("onboarding");
    ASSERT_NE(guide, nullptr);
    auto* onboarding =
        engine_->singletonInstance<Onboarding*>(qmlTypeId("Quernstead", 1, 0, "Onboarding"));
    onboarding->open();
    EXPECT_TRUE(guide->property("visible").toBool());
    guide->setProperty("page", 2);
    QCoreApplication::processEvents();
    QList<QStringList> shown;
    for (auto* cap : test::itemsNamed(window_->contentItem(), "onboardingKeycap"))
        shown.append(cap->property("keys").toStringList());
    QList<QStringList> menus;
    for (auto action : {"addAccount", "previousMessage", "nextMessage", "showImages"})
        menus.append(CommandTable::keycaps(CommandTable::find(action)->keys));
    EXPECT_EQ(shown, menus);
    EXPECT_EQ(menus.value(3), (QStringList{"Ctrl", "Shift", "L"}));
    onboarding->finish();
}

} // namespace
} // namespace qs
