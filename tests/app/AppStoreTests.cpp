#include "model/AppStore.h"
#include "model/Credentials.h"
#include "model/SettingsKeys.h"

#include "StoreTest.h"
#include "support/FileIO.h"
#include "support/JSON.h"
#include "support/TemporaryDirectory.h"

#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <gtest/gtest.h>

#include <fstream>

namespace {

namespace fs = std::filesystem;

void put(const fs::path& path, std::string_view bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

qs::MailAccount account(std::string label, std::string user = "ann") {
    qs::MailAccount a;
    a.id = qs::UUID::random();
    a.label = std::move(label);
    a.username = std::move(user);
    a.server = {"imap.example.org", 993, false};
    a.provider = "custom";
    return a;
}

using AppStoreTest = qs::test::StoreTest;

TEST_F(AppStoreTest, VaultRootPrecedence) {
    const auto documents =
        fs::path(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation).toStdString());
    struct Case {
        const char* name;
        bool environmentSet;
        bool settingSet;
        fs::path expected;
    };
    const std::vector<Case> cases = {
        {"environment wins over the setting", true, true, vault()},
        {"environment alone", true, false, vault()},
        {"setting alone", false, true, dir.path() / "chosen"},
        {"neither: Documents", false, false, documents / "Quernstead"},
    };
    for (const auto& c : cases) {
        settings().clear();
        if (c.environmentSet) {
            environment.set("QUERNSTEAD_ARCHIVE_DIR", vault().string());
        } else {
            environment.unset("QUERNSTEAD_ARCHIVE_DIR");
        }
        if (c.settingSet) {
            settings().setValue(qs::SettingsKeys::archiveRoot,
                                QString::fromStdString((dir.path() / "chosen").string()));
        }
        qs::AppStore store;
        EXPECT_EQ(store.layout().root, c.expected) << c.name;
        EXPECT_EQ(store.archiveRoot().toStdString(), c.expected.string()) << c.name;
        // Nothing is made on disk, and the setting is left as it was.
        EXPECT_FALSE(fs::exists(c.expected)) << c.name;
        EXPECT_EQ(settings().contains(qs::SettingsKeys::archiveRoot), c.settingSet) << c.name;
    }
}

TEST_F(AppStoreTest, AccountsFileWithABadEntryStartsEmptyAndIsOverwrittenOnSave) {
    auto good = account("Good");
    auto damaged = nlohmann::json::parse(qs::MailAccount::encodeList({good, account("Bad")}));
    damaged[1].erase("provider");
    const auto layout = qs::ArchiveLayout{vault()};
    put(layout.accountsURL(), damaged.dump());

    qs::AppStore store;
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_EQ(qs::FileIO::read(layout.accountsURL()), damaged.dump()) << "left until a save";

    store.addAccount(good, "pw");
    EXPECT_EQ(qs::MailAccount::decodeList(qs::FileIO::read(layout.accountsURL())),
              std::vector<qs::MailAccount>{good});
}

TEST_F(AppStoreTest, AccountsAreReadAndUnfoldedAtStart) {
    auto work = account("Work/Mail");
    auto home = account("Home");
    put(qs::ArchiveLayout{vault()}.accountsURL(), qs::MailAccount::encodeList({work, home}));
    qs::AppStore store;
    EXPECT_EQ(store.accounts(), (std::vector<qs::MailAccount>{work, home}));
    EXPECT_EQ(store.expandedAccounts(), (std::set<std::string>{"Work Mail", "Home"}));
    auto view = store.accountsForView();
    ASSERT_EQ(view.size(), 2);
    EXPECT_EQ(view[0].toMap()["directoryName"].toString(), "Work Mail");
    EXPECT_FALSE(view[0].toMap()["lastBackup"].isValid());
}

TEST_F(AppStoreTest, AddAccountAppendsAndReAddingMovesToTheEnd) {
    qs::AppStore store;
    QSignalSpy changed(&store, &qs::AppStore::accountsChanged);
    auto work = account("Work");
    auto home = account("Home", "bob");
    store.addAccount(work, "w");
    store.addAccount(home, "h");
    work.label = "Work renamed";
    store.addAccount(work, "w2");
    EXPECT_EQ(store.accounts(), (std::vector<qs::MailAccount>{home, work}));
    EXPECT_EQ(changed.count(), 3);
    EXPECT_TRUE(store.expandedAccounts().count("Work renamed"));
    EXPECT_EQ(qs::Credentials::password(work), "w2");
    EXPECT_EQ(qs::MailAccount::decodeList(qs::FileIO::read(store.layout().accountsURL())),
              store.accounts());
}

TEST_F(AppStoreTest, AddAccountWhosePasswordCantBeStoredAddsNothing) {
    put(dir.path() / "plain", "a file, not a folder");
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "plain" / "c.json").string());
    qs::AppStore store;
    QSignalSpy changed(&store, &qs::AppStore::accountsChanged);
    EXPECT_THROW(store.addAccount(account("Work"), "pw"), std::system_error);
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_TRUE(store.expandedAccounts().empty());
    EXPECT_EQ(changed.count(), 0);
    EXPECT_FALSE(fs::exists(store.layout().accountsURL()));
}

TEST_F(AppStoreTest, UpdateAccountReplacesInPlaceAndIgnoresUnknownIds) {
    auto first = account("First");
    auto second = account("Second");
    put(qs::ArchiveLayout{vault()}.accountsURL(), qs::MailAccount::encodeList({first, second}));
    qs::AppStore store;
    const auto before = qs::FileIO::read(store.layout().accountsURL());

    store.updateAccount(account("Stranger"));
    EXPECT_EQ(store.accounts(), (std::vector<qs::MailAccount>{first, second}));
    EXPECT_EQ(qs::FileIO::read(store.layout().accountsURL()), before) << "nothing written";

    first.folders = {"INBOX", "Sent"};
    first.lastBackup = qs::dateFromUnix(1'700'000'000);
    store.updateAccount(first);
    EXPECT_EQ(store.accounts(), (std::vector<qs::MailAccount>{first, second}));
    EXPECT_EQ(qs::MailAccount::decodeList(qs::FileIO::read(store.layout().accountsURL())),
              store.accounts());
}

TEST_F(AppStoreTest, RemovingTheLastAccountKeepsItsMailAndSaysSo) {
    qs::AppStore store;
    auto work = account("Work");
    store.addAccount(work, "pw");
    auto message = store.layout().write("Subject: kept\r\n\r\nbody\r\n",
                                        "Work/INBOX/2024/2024-01-01 kept 1.eml", qs::Date{});
    store.layout().saveSync({}, work);

    store.removeAccount(work);
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_EQ(qs::Credentials::password(work), std::nullopt);
    EXPECT_TRUE(fs::exists(store.layout().url(message)));
    EXPECT_TRUE(fs::exists(store.layout().syncURL(work)));
    EXPECT_EQ(qs::MailAccount::decodeList(qs::FileIO::read(store.layout().accountsURL())),
              std::vector<qs::MailAccount>{});
    ASSERT_TRUE(store.toast());
    EXPECT_EQ(store.toast()->text.toStdString(), "Removed “Work” — its messages stay in the vault");
    EXPECT_EQ(store.toast()->symbol.toStdString(), "person.crop.circle.badge.minus");
    EXPECT_EQ(store.toast()->tint.toStdString(), "ink2");
}

TEST_F(AppStoreTest, SavedSearchesAreReadAndWrittenBackAtStart) {
    const auto layout = qs::ArchiveLayout{vault()};
    std::vector<qs::SavedSearch> searches{{qs::UUID::random(), "Invoices", "invoice from:acme"},
                                          {qs::UUID::random(), "Big", "larger:10MB"}};
    // Pretty-printed on disk; the store writes it back compact.
    put(layout.filtersURL(), nlohmann::json::parse(qs::SavedSearch::encodeList(searches)).dump(2));
    qs::AppStore store;
    EXPECT_EQ(store.savedSearches(), searches);
    EXPECT_EQ(qs::FileIO::read(layout.filtersURL()), qs::SavedSearch::encodeList(searches));
    EXPECT_EQ(store.savedSearchesForView().size(), 2);
}

TEST_F(AppStoreTest, DamagedSavedSearchesStartEmptyAndStayOnDisk) {
    const auto layout = qs::ArchiveLayout{vault()};
    for (const std::string damaged :
         {R"([{"id":"x","name":"a","query":"b"}])", R"([{"name":"a","query":"b"}])", "[", "{}"}) {
        put(layout.filtersURL(), damaged);
        qs::AppStore store;
        EXPECT_TRUE(store.savedSearches().empty()) << damaged;
        EXPECT_EQ(qs::FileIO::read(layout.filtersURL()), damaged);
    }
}

TEST_F(AppStoreTest, ChangingToAnEmptyFolderKeepsSavedSearchesInMemory) {
    auto work = account("Work");
    std::vector<qs::SavedSearch> searches{{qs::UUID::random(), "Invoices", "invoice"}};
    put(qs::ArchiveLayout{vault()}.accountsURL(), qs::MailAccount::encodeList({work}));
    put(qs::ArchiveLayout{vault()}.filtersURL(), qs::SavedSearch::encodeList(searches));
    qs::AppStore store;
    QSignalSpy layoutChanged(&store, &qs::AppStore::layoutChanged);

    auto empty = dir.path() / "empty vault";
    fs::create_directories(empty);
    store.changeArchiveRoot(empty);
    EXPECT_EQ(store.layout().root, empty);
    EXPECT_EQ(layoutChanged.count(), 1);
    EXPECT_EQ(settings().value(qs::SettingsKeys::archiveRoot).toString().toStdString(),
              empty.string());
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_EQ(store.savedSearches(), searches);
    EXPECT_FALSE(fs::exists(store.layout().filtersURL())) << "carried over only by a save";

    // Changing to a vault with records takes them.
    store.changeArchiveRoot(vault());
    EXPECT_EQ(store.accounts(), std::vector<qs::MailAccount>{work});
    EXPECT_EQ(store.savedSearches(), searches);
}

TEST_F(AppStoreTest, ANewToastReplacesTheOldAndClearsItselfLater) {
    qs::AppStore store;
    QSignalSpy changed(&store, &qs::AppStore::toastChanged);
    store.showToast("first", "checkmark");
    auto first = *store.toast();
    store.showToast("second", "checkmark", "ink2");
    ASSERT_TRUE(store.toast());
    EXPECT_EQ(store.toast()->text, "second");
    EXPECT_NE(store.toast()->id, first.id);
    EXPECT_EQ(store.toastForView().value<qs::Toast>().text, "second");
    EXPECT_EQ(changed.count(), 2);
    // Only one clear follows, for the second toast: the first one's clock was restarted.
    ASSERT_TRUE(changed.wait(qs::AppStore::toastMilliseconds * 3));
    EXPECT_FALSE(store.toast());
    EXPECT_FALSE(store.toastForView().isValid());
    EXPECT_FALSE(changed.wait(100)) << "a second clear";
}

TEST_F(AppStoreTest, UnfoldingIsTrackedByFolderName) {
    qs::AppStore store;
    QSignalSpy changed(&store, &qs::AppStore::expandedAccountsChanged);
    store.setAccountExpanded("Work", true);
    store.setAccountExpanded("Work", true);
    store.setAccountExpanded("Home", true);
    store.setAccountExpanded("Work", false);
    EXPECT_EQ(store.expandedAccountsForView(), QStringList{"Home"});
    EXPECT_EQ(changed.count(), 3);
}

} // namespace
