// The store as the window drives it: its vault, accounts and saved searches; backups, the
// schedule, the cleanup walk and import against a real Dovecot on loopback.

#include "model/BackupStatus.h"
#include "model/Credentials.h"
#include "model/Fmt.h"

#include "StoreTest.h"
#include "demo/DemoMail.h"
#include "support/DovecotEnvironment.h"
#include "support/DovecotSeed.h"
#include "support/FileIO.h"
#include "support/IMAPRelay.h"
#include "support/JSON.h"
#include "support/Loopback.h"

#include <QStandardPaths>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using qs::AppStore;
using qs::MailAccount;
using qs::test::DovecotFixture;
using qs::test::IMAPRelay;
using qs::test::put;

[[maybe_unused]] auto* const dovecotEnvironment =
    ::testing::AddGlobalTestEnvironment(new qs::test::DovecotEnvironment);

// Only keeps a broken run from hanging.
constexpr int waitMilliseconds = 60'000;

bool waitFor(QSignalSpy& spy, int count = 1) {
    while (spy.count() < count)
        if (!spy.wait(waitMilliseconds))
            return false;
    return true;
}

size_t fileCount(const fs::path& root) {
    size_t count = 0;
    if (fs::exists(root))
        for (const auto& entry : fs::recursive_directory_iterator(root))
            count += entry.is_regular_file() && entry.path().extension() == ".eml";
    return count;
}

class AppStoreTest : public qs::test::StoreTest {
protected:
    // A Dovecot user of its own per test, so tests never see each other's mail.
    std::string freshUser(const std::string& stem) {
        static int counter = 0;
        std::string user = stem + std::to_string(++counter) + "-" + std::to_string(::getpid());
        DovecotFixture::shared().addUser(user, "secret");
        return user;
    }

    static MailAccount account(const std::string& label, const std::string& user = "ann",
                               uint16_t port = DovecotFixture::shared().imapsPort()) {
        MailAccount a;
        a.id = qs::UUID::random();
        a.label = label;
        a.username = user;
        a.server = {"127.0.0.1", port, false};
        a.provider = "custom";
        return a;
    }
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

TEST_F(AppStoreTest, OneAccountFailingAtLoginDoesNotStopTheNext) {
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
    EXPECT_EQ(finished.count(), 1);

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

    // The good account alone clears nothing of the other's problem, and having filed nothing
    // it starts no scan of the vault.
    if (store.scanPending()) {
        QSignalSpy scanned(&store, &AppStore::scanFinished);
        ASSERT_TRUE(waitFor(scanned));
    }
    store.backUpNow(fine);
    ASSERT_TRUE(waitFor(finished, 2));
    EXPECT_FALSE(store.scanPending());
    EXPECT_EQ(store.toast()->text, "Everything was already in the vault");
    EXPECT_EQ(store.backupProblems().size(), 1u);
}

TEST_F(AppStoreTest, StopDuringTheSecondOfThreeAccounts) {
    auto first = freshUser("first");
    DovecotFixture::shared().deliverAll(first, "INBOX", qs::test::corpusMail(2));
    // Accepts into its backlog and never says a word: the run is reliably mid-account there.
    uint16_t silentPort = 0;
    const int silent = qs::test::Loopback::listen(silentPort, 4, "silent port");
    AppStore store;
    auto one = account("One", first);
    auto two = account("Two", freshUser("second"), silentPort);
    auto three = account("Three", freshUser("third"));
    for (const auto& a : {one, two, three})
        store.addAccount(a, "secret");

    QSignalSpy finished(&store, &AppStore::backupFinished);
    QSignalSpy changed(&store, &AppStore::backupChanged);
    store.backUpNow();
    while (store.backup().accountIndex < 1)
        ASSERT_TRUE(changed.wait(waitMilliseconds));
    store.stopBackup();
    ASSERT_TRUE(waitFor(finished));
    ::close(silent);

    EXPECT_EQ(store.backup().accountIndex, 1);
    EXPECT_EQ(store.backup().lastMessage, "Stopped");
    EXPECT_FALSE(store.backup().lastError);
    EXPECT_TRUE(store.backupProblems().empty());
    EXPECT_EQ(store.toast()->text, "Stopped");
    EXPECT_TRUE(store.accounts()[0].lastBackup);
    EXPECT_FALSE(store.accounts()[1].lastBackup);
    EXPECT_FALSE(store.accounts()[2].lastBackup);
    EXPECT_FALSE(fs::exists(vault() / "Three"));
}

TEST(BackupStatus, ClosingWordsGroupDigitsAndAgreeInNumber) {
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    EXPECT_EQ(qs::BackupStatus::closingMessage(false, 1234, english), "1,234 new messages saved");
    EXPECT_EQ(qs::BackupStatus::closingMessage(false, 3, english, 1),
              "3 new messages saved · 1 repaired");
    EXPECT_EQ(qs::BackupStatus::attentionMessage(2), "Backup finished — 2 accounts need attention");
}

// Accounts without a saved password: a started run ends at once with a problem each, and never
// reaches the network. "Last checked" then tells that run's end, though every account failed.
TEST_F(AppStoreTest, ScheduleThresholds) {
    const qs::Date base = qs::dateFromUnix(1'700'000'000);
    struct Case {
        const char* name;
        bool enabled;
        std::optional<int> hours;                              // absent: never stored
        std::vector<std::optional<std::chrono::seconds>> agos; // per account; absent: never
        bool starts;
    };
    const std::vector<Case> cases = {
        {"off", false, 6, {std::nullopt}, false},
        {"6 h, 5 h 59 min ago", true, 6, {5h + 59min}, false},
        {"6 h, 6 h ago", true, 6, {6h}, true},
        {"unset means 1 h: 59 min", true, std::nullopt, {59min}, false},
        {"unset means 1 h: 1 h", true, std::nullopt, {1h}, true},
        {"0 is raised to 1 h", true, 0, {1h}, true},
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
        fs::remove_all(vault());
        AppStore store;
        std::optional<qs::Date> latest;
        for (size_t i = 0; i < c.agos.size(); ++i) {
            auto a = account("Acct" + std::to_string(i), "nobody" + std::to_string(i));
            store.addAccount(a, "x");
            qs::Credentials::remove(a);
            if (c.agos[i]) {
                a.lastBackup = base - *c.agos[i];
                latest = std::max(latest.value_or(qs::Date{}), *a.lastBackup);
                store.updateAccount(a);
            }
        }
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

// A Dovecot of its own that also listens without TLS, so that a relay can see the release's
// commands and stop it at an exact one; started on first use.
DovecotFixture& plainDovecot() {
    static DovecotFixture fixture([] {
        DovecotFixture::Options options;
        options.plainListener = true;
        return options;
    }());
    return fixture;
}

// Releases that end early: what the sheet shows ("…" stands for the server's own words), and the
// server keeps exactly what wasn't released. 203 messages make two chunks (200, then 3).
TEST_F(AppStoreTest, ReleaseStoppedPartWay) {
    constexpr int64_t total = 203;
    using Action = IMAPRelay::Action;
    const struct {
        const char* name;
        const char* command; // the one the relay stops, its occurrence, and how
        int occurrence;
        Action action;
        bool cancel;   // Stop pressed while the command is held
        bool renumber; // the folder's UIDVALIDITY changed between check and release
        int64_t released;
        std::string title, advice;
    } cases[] = {
        {"stop during the first chunk", "UID EXPUNGE", 1, Action::hold, true, false, 200, "Stopped",
         "Stopped after releasing 200 of 203 messages. The other 3 stay on the server."},
        {"connection lost before the second chunk", "UID STORE", 2, Action::cut, false, false, 200,
         "The server reported a problem",
         "Released 200 of 203 messages, then the server reported "
         "a problem (…). The other 3 are still on the server, untouched."},
        {"folder renumbered since the check", "", 0, Action::hold, false, true, 0,
         "Nothing more was changed",
         "The folder was renumbered on the server since it was "
         "checked. Run a backup, then check again."},
    };
    std::vector<std::string> bytes;
    std::vector<DovecotFixture::Arrival> arrivals;
    for (auto& message : qs::demo::DemoMail::generate(5, int(total))) {
        bytes.push_back(message.bytes);
        arrivals.push_back(message.date);
    }
    const auto tomorrow = std::chrono::system_clock::now() + 48h;

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
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
        const std::string toastBefore = store.toast()->text.toStdString();

        auto& cleanup = store.cleanup();
        QSignalSpy busy(&cleanup, &qs::CleanupModel::busyChanged);
        store.checkCleanup(a, "INBOX", tomorrow);
        while (cleanup.busy())
            ASSERT_TRUE(busy.wait(waitMilliseconds));
        ASSERT_FALSE(cleanup.error()) << *cleanup.error();
        ASSERT_EQ(cleanup.plan()->verified().size(), size_t(total));
        cleanup.setStageFromView(int(qs::CleanupStage::release));

        if (c.renumber)
            plainDovecot().setUIDValidity(user, "INBOX", 4242);
        if (c.occurrence > 0)
            relay.arm(c.command, c.occurrence, c.action);
        store.runCleanup(a);
        EXPECT_TRUE(cleanup.busy());
        if (c.action == Action::hold && c.occurrence > 0) {
            ASSERT_TRUE(relay.waitUntilStopped(std::chrono::milliseconds(waitMilliseconds)));
            if (c.cancel) {
                // A release ends only through its own report, never straight from the button.
                store.cancelCleanup();
                EXPECT_EQ(cleanup.stage(), qs::CleanupStage::release);
                EXPECT_TRUE(cleanup.busy());
            }
            relay.letGo();
        }
        while (cleanup.busy())
            ASSERT_TRUE(busy.wait(waitMilliseconds));

        EXPECT_EQ(cleanup.stage(), qs::CleanupStage::release);
        EXPECT_EQ(cleanup.released(), (qs::CleanupModel::Released{c.released, total}));
        ASSERT_TRUE(cleanup.error());
        EXPECT_EQ(cleanup.error()->title, c.title);
        const std::string& advice = cleanup.error()->advice;
        const size_t gap = c.advice.find("…");
        EXPECT_TRUE(gap == std::string::npos
                        ? advice == c.advice
                        : advice.starts_with(c.advice.substr(0, gap)) &&
                              advice.ends_with(c.advice.substr(gap + std::string("…").size())))
            << advice;
        EXPECT_EQ(cleanup.result().has_value(), c.released > 0);
        if (c.released > 0) {
            EXPECT_TRUE(cleanup.result()->starts_with(std::to_string(c.released) + " messages"));
        }
        // No toast for a release that stopped: the sheet tells it.
        EXPECT_EQ(store.toast()->text.toStdString(), toastBefore);

        std::vector<uint32_t> left;
        size_t marked = 0;
        for (const auto& stored : plainDovecot().messages(user, "INBOX")) {
            left.push_back(stored.uid);
            marked += std::ranges::count(stored.flags, std::string("\\Deleted"));
        }
        EXPECT_EQ(left, std::vector<uint32_t>(uids.begin() + c.released, uids.end()));
        EXPECT_EQ(marked, 0u) << "no message left on the server stays marked \\Deleted";
        EXPECT_EQ(fileCount(vault() / "Partial"), size_t(total));
    }
}

TEST_F(AppStoreTest, CleanupWithoutPasswordStaysAtChoose) {
    AppStore store;
    store.checkCleanup(account("Nopass", "nobody"), "INBOX", std::chrono::system_clock::now());
    EXPECT_EQ(store.cleanup().stage(), qs::CleanupStage::choose);
    ASSERT_TRUE(store.cleanup().error());
    EXPECT_EQ(store.cleanup().error()->title, "No saved password for Nopass");
    EXPECT_FALSE(store.cleanup().busy());
}

// The panel hands the store file URLs; what isn't mail and what can't be read are told apart.
TEST_F(AppStoreTest, ImportCountsSkipsAndRepeats) {
    // Eight messages, each after a blank line and a "From " line.
    const fs::path mbox = fs::path(QS_CORPUS_DIR) / "dovecot-imaptest/tests/sort-size.mbox";
    const fs::path loose = dir.path() / "Note from Zoë.eml";
    std::ofstream(loose, std::ios::binary)
        << "From: zoe@example.org\r\nSubject: One\r\nDate: Mon, 2 "
           "Mar 2020 10:00:00 +0000\r\n\r\nHi.\r\n";
    const fs::path picture = dir.path() / "photo.eml";
    std::ofstream(picture, std::ios::binary) << std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
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
    EXPECT_EQ(store.toast()->symbol, "tray.and.arrow.down.fill");
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
