#include "model/AppStore.h"
#include "model/Credentials.h"
#include "model/SettingsKeys.h"

#include "StoreTest.h"
#include "support/FileIO.h"
#include "support/JSON.h"

#include <QStandardPaths>

namespace {

namespace fs = std::filesystem;
using qs::AppStore;
using qs::MailAccount;
using qs::test::put;

MailAccount account(std::string label, std::string user = "ann") {
    MailAccount a;
    a.id = qs::UUID::random();
    a.label = std::move(label);
    a.username = std::move(user);
    a.server = {"imap.example.org", 993, false};
    a.provider = "custom";
    return a;
}

class AppStoreTest : public qs::test::StoreTest {
protected:
    qs::ArchiveLayout layout() const { return qs::ArchiveLayout{vault()}; }
    std::optional<std::vector<MailAccount>> savedAccounts() const {
        return MailAccount::decodeList(qs::FileIO::read(layout().accountsURL()));
    }
};

// The environment wins over the setting (the setting alone is the settings window's test);
// with neither, Documents. Nothing is made on disk, and the setting is left as it was.
TEST_F(AppStoreTest, VaultRootPrecedence) {
    const auto chosen = QString::fromStdString((dir.path() / "chosen").string());
    settings().setValue(qs::SettingsKeys::archiveRoot, chosen);
    EXPECT_EQ(AppStore().layout().root, vault());
    EXPECT_EQ(settings().value(qs::SettingsKeys::archiveRoot), chosen);
    settings().clear();
    environment.unset("QUERNSTEAD_ARCHIVE_DIR");
    const fs::path documents =
        QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation).toStdString();
    EXPECT_EQ(AppStore().archiveRoot().toStdString(), (documents / "Quernstead").string());
    EXPECT_FALSE(fs::exists(documents / "Quernstead"));
    EXPECT_FALSE(settings().contains(qs::SettingsKeys::archiveRoot));
}

// Read and unfolded at start; an added one goes last (again: moves there), an update stays
// in place, an unknown id changes nothing; every change is saved.
TEST_F(AppStoreTest, AccountsAreReadAddedUpdatedAndSaved) {
    auto work = account("Work/Mail");
    auto home = account("Home");
    put(layout().accountsURL(), MailAccount::encodeList({work, home}));
    AppStore store;
    EXPECT_EQ(store.expandedAccounts(), (std::set<std::string>{"Work Mail", "Home"}));
    EXPECT_EQ(store.accountsForView()[0].toMap()["directoryName"].toString(), "Work Mail");
    QSignalSpy changed(&store, &AppStore::accountsChanged);

    auto other = account("Other", "bob");
    store.addAccount(other, "o");
    work.label = "Work renamed";
    store.addAccount(work, "w2");
    EXPECT_EQ(store.accounts(), (std::vector<MailAccount>{home, other, work}));
    EXPECT_TRUE(store.expandedAccounts().contains("Work renamed"));
    EXPECT_EQ(qs::Credentials::password(work), "w2");

    store.updateAccount(account("Stranger"));
    home.folders = {"INBOX", "Sent"};
    home.lastBackup = qs::dateFromUnix(1'700'000'000);
    store.updateAccount(home);
    EXPECT_EQ(store.accounts(), (std::vector<MailAccount>{home, other, work}));
    EXPECT_EQ(changed.count(), 3);
    EXPECT_EQ(savedAccounts(), store.accounts());

    store.setAccountExpanded("Home", false);
    EXPECT_EQ(store.expandedAccountsForView(), (QStringList{"Other", "Work Mail", "Work renamed"}));
}

TEST_F(AppStoreTest, RemovingTheLastAccountKeepsItsMailAndSaysSo) {
    AppStore store;
    auto work = account("Work");
    store.addAccount(work, "pw");
    store.layout().saveSync({}, work);
    store.removeAccount(work);
    EXPECT_EQ(qs::Credentials::password(work), std::nullopt);
    EXPECT_TRUE(fs::exists(store.layout().syncURL(work)));
    EXPECT_EQ(savedAccounts(), std::vector<MailAccount>{});
    ASSERT_TRUE(store.toast());
    EXPECT_EQ(store.toast()->text.toStdString(), "Removed “Work” — its messages stay in the vault");
    EXPECT_EQ(store.toast()->symbol.toStdString(), "person.crop.circle.badge.minus");
}

// A readable filters file is written back compact; a damaged one starts empty and stays.
TEST_F(AppStoreTest, SavedSearchesAreReadAtStart) {
    std::vector<qs::SavedSearch> searches{{qs::UUID::random(), "Invoices", "invoice from:acme"},
                                          {qs::UUID::random(), "Big", "larger:10MB"}};
    const std::string pretty = nlohmann::json::parse(qs::SavedSearch::encodeList(searches)).dump(2);
    const struct {
        std::string onDisk;
        std::vector<qs::SavedSearch> read;
        std::string after;
    } rows[] = {
        {pretty, searches, qs::SavedSearch::encodeList(searches)},
        {R"([{"name":"a","query":"b"}])", {}, R"([{"name":"a","query":"b"}])"},
        {"[", {}, "["},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.onDisk);
        put(layout().filtersURL(), row.onDisk);
        AppStore store;
        EXPECT_EQ(store.savedSearches(), row.read);
        EXPECT_EQ(qs::FileIO::read(layout().filtersURL()), row.after);
    }
}

TEST_F(AppStoreTest, ANewToastReplacesTheOldAndClearsItselfLater) {
    AppStore store;
    QSignalSpy changed(&store, &AppStore::toastChanged);
    store.showToast("first", "checkmark");
    store.showToast("second", "checkmark", "ink2");
    EXPECT_EQ(store.toastForView().value<qs::Toast>().text, "second");
    EXPECT_EQ(changed.count(), 2);
    // Only one clear follows, for the second toast: the first one's clock was restarted.
    ASSERT_TRUE(changed.wait(AppStore::toastMilliseconds * 3));
    EXPECT_FALSE(store.toast());
    EXPECT_FALSE(changed.wait(100)) << "a second clear";
}

} // namespace
