#include "model/Credentials.h"
#include "model/Fmt.h"

#include "StoreTest.h"
#include "demo/DemoMail.h"
#include "support/DovecotEnvironment.h"
#include "support/DovecotSeed.h"
#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/IMAPRelay.h"
#include "support/JSON.h"
#include "support/Loopback.h"
#include "support/QtTestEnvironment.h"

#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using qs::AppStore;
using qs::MailAccount;
using qs::test::DovecotFixture;
using qs::test::IMAPRelay;
using qs::test::put;
using qs::test::waitFor;
using qs::test::waitMilliseconds;

[[maybe_unused]] const auto* application = ::testing::AddGlobalTestEnvironment(
    new qs::test::QtTestEnvironment<QCoreApplication>("test_app", false));
[[maybe_unused]] auto* const dovecotEnvironment =
    ::testing::AddGlobalTestEnvironment(new qs::test::DovecotEnvironment);

size_t fileCount(const fs::path& root) {
    return qs::test::snapshotFiles(root, ".quernstead").size();
}

class AppStoreTest : public qs::test::StoreTest {
protected:
    std::string freshUser(const std::string& stem) {
        static int counter = 0;
        std::string user = stem + std::to_string(++counter) + "-" + std::to_string(::getpid());
        DovecotFixture::shared().addUser(user, "secret");
        return user;
    }

    static MailAccount account(const std::string& label, const std::string& user = "ann",
                               uint16_t port = DovecotFixture::shared().imapsPort()) {
        return qs::test::account(label, user, "127.0.0.1", port);
    }
    qs::ArchiveLayout layout() const { return qs::ArchiveLayout{vault()}; }
    std::optional<std::vector<MailAccount>> savedAccounts() const {
        return MailAccount::decodeList(qs::FileIO::read(layout().accountsURL()));
    }
};

// An account added again moves last; an update stays in place; an unknown id changes nothing;
// removing the last keeps its mail.
TEST_F(AppStoreTest, AccountsAreReadAddedUpdatedRemovedAndSavedAndToastsClearThemselves) {
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
    store.layout().saveSync({}, work);
    for (const auto& a : {home, other, work})
        store.removeAccount(a);
    EXPECT_EQ(qs::Credentials::password(work), std::nullopt);
    EXPECT_TRUE(fs::exists(store.layout().syncURL(work)));
    EXPECT_EQ(savedAccounts(), std::vector<MailAccount>{});
    ASSERT_TRUE(store.toast());
    EXPECT_EQ(store.toast()->text.toStdString(),
              "Removed “Work renamed” — its messages stay in the vault");
    QSignalSpy toasts(&store, &AppStore::toastChanged);
    store.checkCleanup(work, "INBOX", std::chrono::system_clock::now());
    EXPECT_EQ(store.cleanup().stage(), qs::CleanupStage::choose);
    ASSERT_TRUE(store.cleanup().error());
    EXPECT_EQ(store.cleanup().error()->title, "No saved password for Work renamed");
    EXPECT_FALSE(store.cleanup().busy());

    // Each new toast replaced the last; the last clears itself, once.
    ASSERT_TRUE(toasts.wait(AppStore::toastMilliseconds * 3));
    EXPECT_FALSE(store.toast());
    EXPECT_FALSE(toasts.wait(100)) << "a second clear";
}

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

TEST_F(AppStoreTest, OneAccountFailingAtLoginDoesNotStopTheNextAndStopEndsARunMidAccount) {
    auto good = freshUser("good");
    DovecotFixture::shared().deliverAll(good, "INBOX", qs::test::corpusMail(3));
    AppStore store;
    store.backUpNow();
    EXPECT_TRUE(store.showAddAccount()) << "no account: the add-account sheet";
    EXPECT_FALSE(store.backup().running);
    auto bad = account("Broken", freshUser("bad"));
    auto fine = account("Fine", good);
    store.addAccount(bad, "not the password");
    store.addAccount(fine, "secret");
    QSignalSpy finished(&store, &AppStore::backupFinished);
    store.backUpNow();
    EXPECT_TRUE(store.backup().running);
    store.backUpNow(); // a second press only opens the sheet
    EXPECT_TRUE(store.showBackupActivity());
    ASSERT_TRUE(waitFor(finished));
    ASSERT_EQ(store.backupProblems().size(), 1u);
    EXPECT_EQ(store.backupProblems().at("Broken").title, "The password wasn’t accepted");
    EXPECT_EQ(store.backup().lastError, "The password wasn’t accepted");
    EXPECT_EQ(store.backup().lastMessage, "3 new messages saved");
    ASSERT_TRUE(store.toast());
    EXPECT_EQ(store.toast()->text, "Backup finished — 1 account needs attention");
    EXPECT_EQ(store.toast()->tint, "caution");
    EXPECT_FALSE(store.accounts()[0].lastBackup);
    EXPECT_TRUE(store.accounts()[1].lastBackup);
    EXPECT_EQ(store.ledger().at("Fine/INBOX"), (qs::LedgerLine{false, 3, 3, true, 3}));
    EXPECT_EQ(fileCount(vault() / "Fine"), 3u);

    // Having filed nothing, the good account alone starts no scan and clears no problem.
    if (store.scanPending()) {
        QSignalSpy scanned(&store, &AppStore::scanFinished);
        ASSERT_TRUE(waitFor(scanned));
    }
    store.backUpNow(fine);
    ASSERT_TRUE(waitFor(finished, 2));
    EXPECT_FALSE(store.scanPending());
    EXPECT_EQ(store.toast()->text, "Everything was already in the vault");
    EXPECT_EQ(store.backupProblems().size(), 1u);

    // The second account accepts and never answers: the run is reliably mid-account there.
    uint16_t silentPort = 0;
    const int silent = qs::test::Loopback::listen(silentPort, 4, "silent port");
    store.removeAccount(bad);
    store.addAccount(account("Two", freshUser("second"), silentPort), "secret");
    store.addAccount(account("Three", freshUser("third")), "secret");
    const auto before = store.accounts()[0].lastBackup;
    QSignalSpy changed(&store, &AppStore::backupChanged);
    store.backUpNow();
    while (store.backup().accountIndex < 1)
        ASSERT_TRUE(changed.wait(waitMilliseconds));
    store.stopBackup();
    ASSERT_TRUE(waitFor(finished, 3));
    ::close(silent);
    EXPECT_EQ(store.backup().accountIndex, 1);
    EXPECT_EQ(store.backup().lastMessage, "Stopped");
    EXPECT_FALSE(store.backup().lastError);
    EXPECT_FALSE(store.backupProblems().contains("Two")) << "stopping is no problem";
    EXPECT_EQ(store.toast()->text, "Stopped");
    EXPECT_GT(store.accounts()[0].lastBackup, before);
    EXPECT_FALSE(store.accounts()[1].lastBackup);
    EXPECT_FALSE(store.accounts()[2].lastBackup);
    EXPECT_FALSE(fs::exists(vault() / "Three"));
}

TEST_F(AppStoreTest, ScheduleThresholds) {
    const qs::Date base = qs::dateFromUnix(1'700'000'000);
    const struct {
        const char* name;
        bool enabled;
        std::optional<int> hours;
        std::vector<std::optional<std::chrono::seconds>> agos; // per account
        bool starts;
    } cases[] = {
        {"off", false, 6, {std::nullopt}, false},
        {"6 h, 5 h 59 min ago", true, 6, {5h + 59min}, false},
        {"6 h, 6 h ago", true, 6, {6h}, true},
        {"unset means 1 h: 59 min", true, std::nullopt, {59min}, false},
        {"unset means 1 h: 1 h", true, std::nullopt, {1h}, true},
        {"the earliest backup counts", true, 6, {1h, 7h}, true},
        {"never backed up doesn't hold back", true, 6, {std::nullopt, 2h}, false},
        {"all never backed up", true, 6, {std::nullopt, std::nullopt}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        settings().clear();
        settings().setValue(qs::SettingsKeys::scheduleEnabled, c.enabled);
        if (c.hours)
            settings().setValue(qs::SettingsKeys::scheduleHours, *c.hours);
        std::optional<qs::Date> latest;
        std::vector<MailAccount> accounts;
        for (size_t i = 0; i < c.agos.size(); ++i) {
            accounts.push_back(account("Acct" + std::to_string(i), "nobody" + std::to_string(i)));
            if (c.agos[i])
                latest = std::max(latest.value_or(qs::Date{}),
                                  *(accounts.back().lastBackup = base - *c.agos[i]));
        }
        put(layout().accountsURL(), MailAccount::encodeList(accounts));
        AppStore store;
        EXPECT_TRUE(store.vaultSummary().startsWith("0 messages · 0 bytes"));
        const QString ago = latest ? qs::Fmt::ago(*latest) : QString();
        EXPECT_EQ(store.vaultSummary().endsWith("last checked " + ago), latest.has_value());
        QSignalSpy finished(&store, &AppStore::backupFinished);
        store.checkSchedule(base);
        EXPECT_EQ(store.backup().running, c.starts);
        if (store.backup().running) {
            ASSERT_TRUE(waitFor(finished));
            EXPECT_EQ(store.backupProblems().size(), c.agos.size());
            EXPECT_EQ(store.backupProblems().begin()->second.title, "No saved password");
            EXPECT_TRUE(store.vaultSummary().endsWith(" · last checked just now"));
        }
    }
}

// Listens without TLS too, so a relay can stop the release at an exact command.
DovecotFixture& plainDovecot() {
    static DovecotFixture fixture(DovecotFixture::Options{true, {}, true});
    return fixture;
}

// 203 messages make two chunks (200, then 3).
TEST_F(AppStoreTest, ReleaseStoppedPartWay) {
    constexpr int64_t total = 203, released = 200;
    using Action = IMAPRelay::Action;
    const struct {
        const char* command;
        int occurrence;
        Action action;
        std::string title, advice, adviceEnd; // the server's own words go between
    } cases[] = {
        {"UID EXPUNGE", 1, Action::hold, "Stopped", "Stopped after releasing 200 of 203 messages.",
         " The other 3 stay on the server."},
        {"UID STORE", 2, Action::cut, "The server reported a problem",
         "Released 200 of 203 messages, then the server reported a problem (",
         "). The other 3 are still on the server, untouched."},
    };
    std::vector<std::string> bytes;
    std::vector<DovecotFixture::Arrival> arrivals;
    for (auto& message : qs::demo::DemoMail::generate(5, int(total))) {
        bytes.push_back(message.bytes);
        arrivals.push_back(message.date);
    }
    const auto tomorrow = std::chrono::system_clock::now() + 48h;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        fs::remove_all(vault());
        static int counter = 0;
        const std::string user = "partial" + std::to_string(++counter);
        plainDovecot().addUser(user, "secret");
        const auto uids = plainDovecot().deliverAll(user, "INBOX", bytes, arrivals);
        IMAPRelay relay(plainDovecot().imapPort());
        MailAccount a = account("Partial", user, relay.port());
        a.server.plaintextLocalDev = true;
        AppStore store;
        store.addAccount(a, "secret");
        QSignalSpy finished(&store, &AppStore::backupFinished);
        store.backUpNow();
        ASSERT_TRUE(waitFor(finished));
        ASSERT_EQ(store.backup().lastMessage, "203 new messages saved");
        // A partial release shows no toast of its own (the backup's may have timed out since).
        const QString toastBefore = store.toast() ? store.toast()->text : QString();
        auto& cleanup = store.cleanup();
        QSignalSpy busy(&cleanup, &qs::CleanupModel::busyChanged);
        store.checkCleanup(a, "INBOX", tomorrow);
        while (cleanup.busy())
            ASSERT_TRUE(busy.wait(waitMilliseconds));
        ASSERT_FALSE(cleanup.error()) << *cleanup.error();
        ASSERT_EQ(cleanup.plan()->verified().size(), size_t(total));
        cleanup.setStageFromView(int(qs::CleanupStage::release));
        relay.arm(c.command, c.occurrence, c.action);
        store.runCleanup(a);
        EXPECT_TRUE(cleanup.busy());
        if (c.action == Action::hold) {
            ASSERT_TRUE(relay.waitUntilStopped(std::chrono::milliseconds(waitMilliseconds)));
            // A release ends only through its own report, never straight from the button.
            store.cancelCleanup();
            EXPECT_EQ(cleanup.stage(), qs::CleanupStage::release);
            EXPECT_TRUE(cleanup.busy());
            relay.letGo();
        }
        while (cleanup.busy())
            ASSERT_TRUE(busy.wait(waitMilliseconds));
        EXPECT_EQ(cleanup.stage(), qs::CleanupStage::release);
        EXPECT_EQ(cleanup.released(), (qs::CleanupModel::Released{released, total}));
        ASSERT_TRUE(cleanup.error());
        EXPECT_EQ(cleanup.error()->title, c.title);
        const std::string& advice = cleanup.error()->advice;
        EXPECT_TRUE(advice.starts_with(c.advice) && advice.ends_with(c.adviceEnd)) << advice;
        ASSERT_TRUE(cleanup.result());
        EXPECT_TRUE(cleanup.result()->starts_with(std::to_string(released) + " messages"));
        EXPECT_TRUE(!store.toast() || store.toast()->text == toastBefore);
        std::vector<uint32_t> left;
        for (const auto& stored : plainDovecot().messages(user, "INBOX")) {
            left.push_back(stored.uid);
            EXPECT_EQ(std::ranges::count(stored.flags, "\\Deleted"), 0) << "left marked";
        }
        EXPECT_EQ(left, std::vector<uint32_t>(uids.begin() + released, uids.end()));
        EXPECT_EQ(fileCount(vault() / "Partial"), size_t(total));
    }
}

TEST_F(AppStoreTest, ImportCountsSkipsAndRepeats) {
    const fs::path mbox = fs::path(QS_CORPUS_DIR) / "dovecot-imaptest/tests/sort-size.mbox"; // 8
    const fs::path loose = dir.path() / "Note from Zoë.eml", picture = dir.path() / "photo.eml";
    put(loose, qs::test::message("One", 1'583'143'200, "zoe@example.org"));
    put(picture, std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
    const auto url = [](const fs::path& p) {
        return QUrl::fromLocalFile(QString::fromStdString(p.string()));
    };
    AppStore store;
    QSignalSpy finished(&store, &AppStore::importFinished);
    store.importFileUrls({url(mbox), url(loose), url(picture), url(dir.path() / "missing.eml"),
                          QUrl("https://example.org/x.eml")});
    EXPECT_EQ(store.importMessage(), QStringLiteral("Importing…"));
    ASSERT_TRUE(waitFor(finished));
    EXPECT_EQ(store.importMessage(), QStringLiteral("Imported 9 messages · 2 skipped"));
    EXPECT_EQ(store.toast()->text, "Imported 9 messages · 2 skipped");
    EXPECT_EQ(fileCount(vault() / "Imported" / "sort-size"), 8u);
    EXPECT_EQ(fileCount(vault() / "Imported" / "Loose Messages"), 1u);
    EXPECT_EQ(fileCount(vault()), 9u);
    store.importFiles({picture});
    ASSERT_TRUE(waitFor(finished, 2));
    EXPECT_EQ(store.importMessage(), QStringLiteral("Imported 0 messages · 1 skipped"));
    EXPECT_EQ(store.toast()->text, "Nothing imported — 1 file wasn’t a valid email");
    EXPECT_EQ(store.toast()->tint, "caution");
    store.importFiles({dir.path() / "missing.eml", dir.path()});
    ASSERT_TRUE(waitFor(finished, 3));
    EXPECT_EQ(store.toast()->text, "Nothing imported — 2 files couldn’t be read");
    ASSERT_EQ(store.importOutcomes().size(), 2u);
    EXPECT_EQ(store.importOutcomes()[1].reason, qs::ImportOutcome::Skip::directory);
}

} // namespace
