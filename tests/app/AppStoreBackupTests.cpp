// Backups, the schedule, the cleanup walk and import, driven through the store as the window
// drives it, against a real Dovecot on loopback.

#include "model/AppStore.h"
#include "model/BackupStatus.h"
#include "model/Credentials.h"
#include "model/Fmt.h"
#include "model/SettingsKeys.h"
#include "model/VerifyPacing.h"

#include "StoreTest.h"
#include "demo/DemoMail.h"
#include "support/DovecotEnvironment.h"
#include "support/DovecotSeed.h"
#include "support/IMAPRelay.h"
#include "support/Loopback.h"
#include "support/TemporaryDirectory.h"

#include <QSettings>
#include <QSignalSpy>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using qs::AppStore;
using qs::MailAccount;
using qs::test::corpusMail;
using qs::test::DovecotFixture;
using qs::test::IMAPRelay;

[[maybe_unused]] auto* const dovecotEnvironment =
    ::testing::AddGlobalTestEnvironment(new qs::test::DovecotEnvironment);

// Generous: the waits end at the signal, the limit only keeps a broken run from hanging.
constexpr int waitMilliseconds = 60'000;

bool waitFor(QSignalSpy& spy, int count = 1) {
    while (spy.count() < count) {
        if (!spy.wait(waitMilliseconds)) {
            return false;
        }
    }
    return true;
}

// A TCP port on 127.0.0.1 that accepts connections into its backlog and never says a word: a
// client waiting there is reliably mid-run until it is stopped.
class SilentPort {
public:
    SilentPort() : fd_(qs::test::Loopback::listen(port_, 4, "silent port")) {}
    ~SilentPort() { ::close(fd_); }
    uint16_t port() const { return port_; }

private:
    uint16_t port_ = 0;
    int fd_;
};

size_t fileCount(const fs::path& root) {
    size_t count = 0;
    if (fs::exists(root)) {
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            count += entry.is_regular_file() && entry.path().extension() == ".eml";
        }
    }
    return count;
}

class AppStoreBackupTest : public qs::test::StoreTest {
protected:
    // A Dovecot user of its own per test, so tests never see each other's mail.
    std::string freshUser(const std::string& stem) {
        static int counter = 0;
        std::string user = stem + std::to_string(++counter) + "-" + std::to_string(::getpid());
        DovecotFixture::shared().addUser(user, "secret");
        return user;
    }

    static MailAccount account(const std::string& label, const std::string& user,
                               uint16_t port = DovecotFixture::shared().imapsPort()) {
        MailAccount a;
        a.id = qs::UUID::random();
        a.label = label;
        a.username = user;
        a.server = {"127.0.0.1", port, false};
        a.provider = "custom";
        return a;
    }

    const MailAccount& stored(const AppStore& store, const MailAccount& a) {
        return *std::ranges::find(store.accounts(), a.id, &MailAccount::id);
    }
};

TEST_F(AppStoreBackupTest, OneAccountFailingAtLoginDoesNotStopTheNext) {
    auto& dovecot = DovecotFixture::shared();
    auto good = freshUser("good");
    dovecot.deliverAll(good, "INBOX", corpusMail(3));
    AppStore store;
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
    EXPECT_TRUE(store.backup().lastFinished);
    ASSERT_TRUE(store.toast());
    EXPECT_EQ(store.toast()->text, "Backup finished — 1 account needs attention");
    EXPECT_EQ(store.toast()->tint, "caution");
    EXPECT_FALSE(stored(store, bad).lastBackup);
    EXPECT_TRUE(stored(store, fine).lastBackup);
    EXPECT_EQ(store.ledger().at("Fine/INBOX"), (qs::LedgerLine{false, 3, 3, true, 3}));
    EXPECT_EQ(fileCount(vault() / "Fine"), 3u);

    // The next run of the good account alone clears nothing of the other's problem, and
    // having filed nothing it starts no scan of the vault.
    if (store.scanPending()) {
        QSignalSpy scanned(&store, &AppStore::scanFinished);
        ASSERT_TRUE(waitFor(scanned));
    }
    store.backUpNow(fine);
    ASSERT_TRUE(waitFor(finished, 2));
    EXPECT_FALSE(store.scanPending());
    EXPECT_EQ(store.backup().lastMessage, "Everything was already in the vault");
    EXPECT_EQ(store.toast()->text, "Everything was already in the vault");
    EXPECT_EQ(store.backupProblems().size(), 1u);
}

// "Last checked" tells when the last run ended, even one in which every account failed; with
// no run yet, when an account was last backed up.
TEST_F(AppStoreBackupTest, SummaryTellsWhenTheVaultWasLastChecked) {
    AppStore store;
    auto broken = account("Broken", freshUser("broken"));
    const auto longAgo = std::chrono::system_clock::now() - std::chrono::hours(24 * 800);
    broken.lastBackup = longAgo;
    store.addAccount(broken, "not the password");
    EXPECT_TRUE(store.vaultSummary().endsWith(" · last checked " + qs::Fmt::ago(longAgo)))
        << store.vaultSummary().toStdString();

    QSignalSpy finished(&store, &AppStore::backupFinished);
    store.backUpNow();
    ASSERT_TRUE(waitFor(finished));
    ASSERT_TRUE(store.backup().lastFinished);
    EXPECT_EQ(stored(store, broken).lastBackup, longAgo);
    const auto ended = qs::Fmt::ago(*store.backup().lastFinished);
    ASSERT_NE(ended, qs::Fmt::ago(longAgo));
    EXPECT_TRUE(store.vaultSummary().endsWith(" · last checked " + ended))
        << store.vaultSummary().toStdString();
}

TEST_F(AppStoreBackupTest, StopDuringTheSecondOfThreeAccounts) {
    auto& dovecot = DovecotFixture::shared();
    auto first = freshUser("first");
    dovecot.deliverAll(first, "INBOX", corpusMail(2));
    SilentPort silent;
    AppStore store;
    auto one = account("One", first);
    auto two = account("Two", freshUser("second"), silent.port());
    auto three = account("Three", freshUser("third"));
    for (const auto& a : {one, two, three}) {
        store.addAccount(a, "secret");
    }

    QSignalSpy finished(&store, &AppStore::backupFinished);
    QSignalSpy changed(&store, &AppStore::backupChanged);
    store.backUpNow();
    while (store.backup().accountIndex < 1) {
        ASSERT_TRUE(changed.wait(waitMilliseconds));
    }
    store.stopBackup();
    ASSERT_TRUE(waitFor(finished));

    EXPECT_EQ(store.backup().accountIndex, 1);
    EXPECT_EQ(store.backup().lastMessage, "Stopped");
    EXPECT_FALSE(store.backup().lastError);
    EXPECT_TRUE(store.backupProblems().empty());
    EXPECT_EQ(store.toast()->text, "Stopped");
    EXPECT_TRUE(stored(store, one).lastBackup);
    EXPECT_FALSE(stored(store, two).lastBackup);
    EXPECT_FALSE(stored(store, three).lastBackup);
    EXPECT_FALSE(fs::exists(vault() / "Three"));
}

TEST_F(AppStoreBackupTest, NoAccountsOpensTheAddAccountSheet) {
    AppStore store;
    store.backUpNow();
    EXPECT_TRUE(store.showAddAccount());
    EXPECT_FALSE(store.backup().running);
}

TEST(BackupStatus, ClosingMessage) {
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    EXPECT_EQ(qs::BackupStatus::closingMessage(true, 5, english), "Stopped");
    EXPECT_EQ(qs::BackupStatus::closingMessage(false, 1, english), "1 new message saved");
    EXPECT_EQ(qs::BackupStatus::closingMessage(false, 1234, english), "1,234 new messages saved");
    EXPECT_EQ(qs::BackupStatus::closingMessage(false, 0, english),
              "Everything was already in the vault");
    EXPECT_EQ(qs::BackupStatus::attentionMessage(2), "Backup finished — 2 accounts need attention");
}

TEST_F(AppStoreBackupTest, ApplyFillsTheLedger) {
    AppStore store;
    qs::BackupProgress downloading;
    downloading.phase = "Downloading";
    downloading.mailbox = "Work";
    downloading.messagesDone = 4;
    downloading.messagesTotal = 9;
    downloading.completed = {{"INBOX", 7}};
    store.apply(downloading, "Ann");
    EXPECT_EQ(store.ledger().at("Ann/INBOX"), (qs::LedgerLine{false, 7, 7, true, 7}));
    EXPECT_EQ(store.ledger().at("Ann/Work"), (qs::LedgerLine{true, 4, 9, false, 0}));

    // A finished line stays as it was; "Done" opens no new line.
    qs::BackupProgress done;
    done.phase = "Done";
    done.mailbox = "Later";
    done.completed = {{"INBOX", 99}, {"Work", 9}};
    store.apply(done, "Ann");
    EXPECT_EQ(store.ledger().at("Ann/INBOX").newMessages, 7);
    EXPECT_EQ(store.ledger().at("Ann/Work"), (qs::LedgerLine{false, 9, 9, true, 9}));
    EXPECT_FALSE(store.ledger().contains("Ann/Later"));
    EXPECT_EQ(store.backup().progress, done);
}

TEST_F(AppStoreBackupTest, ScheduleThresholds) {
    // Accounts without a saved password: a started run ends at once with a problem each, and
    // never reaches the network.
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
        settings().clear();
        settings().setValue(qs::SettingsKeys::scheduleEnabled, c.enabled);
        if (c.hours) {
            settings().setValue(qs::SettingsKeys::scheduleHours, *c.hours);
        }
        fs::remove_all(vault());
        AppStore store;
        for (size_t i = 0; i < c.agos.size(); ++i) {
            auto a = account("Acct" + std::to_string(i), "nobody" + std::to_string(i));
            store.addAccount(a, "x");
            qs::Credentials::remove(a);
            if (c.agos[i]) {
                a.lastBackup = base - *c.agos[i];
                store.updateAccount(a);
            }
        }
        QSignalSpy finished(&store, &AppStore::backupFinished);
        store.checkSchedule(base);
        EXPECT_EQ(store.backup().running, c.starts) << c.name;
        if (store.backup().running) {
            ASSERT_TRUE(waitFor(finished)) << c.name;
            EXPECT_EQ(store.backupProblems().size(), c.agos.size()) << c.name;
            EXPECT_EQ(store.backupProblems().begin()->second.title, "No saved password");
        }
    }
}

TEST(VerifyPacing, RoundsBatchesAndPauses) {
    struct Case {
        int64_t items, rounds, batch, pauseMs;
    };
    for (auto c : std::vector<Case>{{0, 0, 1, 0},
                                    {1, 1, 1, 120},
                                    {10, 10, 1, 120},
                                    {40, 40, 1, 45},
                                    {41, 40, 2, 45},
                                    {1000, 40, 25, 45},
                                    {100000, 40, 2500, 45}}) {
        auto pacing = qs::VerifyPacing::of(c.items);
        EXPECT_EQ(pacing.rounds, c.rounds) << c.items;
        EXPECT_EQ(pacing.batch, c.batch) << c.items;
        EXPECT_EQ(pacing.pause.count(), c.pauseMs) << c.items;
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

// Releases that end before every verified message has left the server: the user presses Stop
// while a command is under way, the connection drops, or the server changed since the check.
// (Where a release stops, and its counts, are the cleanup's own tests; here, what the sheet
// shows of each way of ending.)
// 203 messages make two chunks of the release (200, then 3). Each row checks what the sheet
// shows and that the server keeps exactly the messages that weren't released.
TEST_F(AppStoreBackupTest, ReleaseStoppedPartWay) {
    constexpr int64_t total = 203;
    struct Case {
        const char* name;
        // The command the relay stops, its occurrence in the release, and how.
        const char* command;
        int occurrence;
        IMAPRelay::Action action;
        // The user presses Stop while the command is held.
        bool cancel;
        // Done to the server between the check and the release (nothing when empty).
        std::function<void(const std::string& user)> meddle;
        int64_t released;
        std::string title;
        std::string advice; // its start, when `adviceEnd` is set
        std::string adviceEnd;
        // No message left on the server stays marked \Deleted. A chunk's marks are taken back
        // when it fails, but not when the connection that set them is gone before its EXPUNGE.
        bool unmarked;
    };
    const std::string problem = "Released 0 of 203 messages, then the server reported a problem (";
    // One row a case reads better than one field a line.
    // clang-format off
    const std::vector<Case> cases = {
        {"stop during the first chunk", "UID EXPUNGE", 1, IMAPRelay::Action::hold, true, {}, 200,
         "Stopped", "Stopped after releasing 200 of 203 messages. The other 3 stay on the server.",
         "", true},
        {"connection lost before the second chunk", "UID STORE", 2, IMAPRelay::Action::cut,
         false, {}, 200, "The server reported a problem",
         "Released 200 of 203 messages, then the server reported a problem (",
         "). The other 3 are still on the server, untouched.", true},
        {"connection lost between marking and expunging", "UID EXPUNGE", 1,
         IMAPRelay::Action::cut, false, {}, 0, "The server reported a problem", problem,
         "). The other 203 are still on the server, untouched.", false},
        {"folder renumbered since the check", "", 0, IMAPRelay::Action::hold, false,
         [](const std::string& user) { plainDovecot().setUIDValidity(user, "INBOX", 4242); }, 0,
         "Nothing more was changed",
         "The folder was renumbered on the server since it was checked. Run a backup, then check "
         "again.",
         "", true},
    };
    // clang-format on
    std::vector<qs::demo::DemoMessage> mail = qs::demo::DemoMail::generate(5, int(total));
    std::vector<std::string> bytes;
    std::vector<DovecotFixture::Arrival> arrivals;
    for (auto& message : mail) {
        bytes.push_back(message.bytes);
        arrivals.push_back(message.date);
    }
    const auto tomorrow = std::chrono::system_clock::now() + 48h;

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(vault());
        static int counter = 0;
        const std::string user = "partial" + std::to_string(++counter);
        plainDovecot().addUser(user, "secret");
        const std::vector<uint32_t> uids =
            plainDovecot().deliverAll(user, "INBOX", bytes, arrivals);
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
        while (cleanup.busy()) {
            ASSERT_TRUE(busy.wait(waitMilliseconds));
        }
        ASSERT_FALSE(cleanup.error()) << *cleanup.error();
        ASSERT_EQ(cleanup.plan()->verified().size(), size_t(total));
        cleanup.setStageFromView(int(qs::CleanupStage::release));

        if (c.meddle) {
            c.meddle(user);
        }
        if (c.occurrence > 0) {
            relay.arm(c.command, c.occurrence, c.action);
        }
        store.runCleanup(a);
        EXPECT_TRUE(cleanup.busy());
        if (c.action == IMAPRelay::Action::hold && c.occurrence > 0) {
            ASSERT_TRUE(relay.waitUntilStopped(std::chrono::milliseconds(waitMilliseconds)));
            if (c.cancel) {
                // A release ends only through its own report, never straight from the button.
                store.cancelCleanup();
                EXPECT_EQ(cleanup.stage(), qs::CleanupStage::release);
                EXPECT_TRUE(cleanup.busy());
            }
            relay.letGo();
        }
        while (cleanup.busy()) {
            ASSERT_TRUE(busy.wait(waitMilliseconds));
        }

        EXPECT_EQ(cleanup.stage(), qs::CleanupStage::release);
        EXPECT_EQ(cleanup.released(), (qs::CleanupModel::Released{c.released, total}));
        ASSERT_TRUE(cleanup.error());
        EXPECT_EQ(cleanup.error()->title, c.title);
        if (c.adviceEnd.empty()) {
            EXPECT_EQ(cleanup.error()->advice, c.advice);
        } else {
            EXPECT_TRUE(cleanup.error()->advice.starts_with(c.advice)) << cleanup.error()->advice;
            EXPECT_TRUE(cleanup.error()->advice.ends_with(c.adviceEnd)) << cleanup.error()->advice;
        }
        // The result's words are checked with a whole release; here, that one is told.
        EXPECT_EQ(cleanup.result().has_value(), c.released > 0);
        if (c.released > 0) {
            EXPECT_TRUE(cleanup.result()->starts_with(std::to_string(c.released) + " messages"));
        }
        // No toast for a release that stopped: the sheet tells it.
        ASSERT_TRUE(store.toast());
        EXPECT_EQ(store.toast()->text.toStdString(), toastBefore);

        // The server keeps exactly what wasn't released, the highest UIDs, and the vault
        // keeps every copy.
        std::vector<uint32_t> left;
        size_t marked = 0;
        for (const auto& stored : plainDovecot().messages(user, "INBOX")) {
            left.push_back(stored.uid);
            marked += std::ranges::count(stored.flags, std::string("\\Deleted"));
        }
        const std::vector<uint32_t> kept(uids.begin() + c.released, uids.end());
        EXPECT_EQ(left, kept);
        if (c.unmarked) {
            EXPECT_EQ(marked, 0u);
        }
        EXPECT_EQ(fileCount(vault() / "Partial"), size_t(total));
    }
}

TEST_F(AppStoreBackupTest, CleanupWithoutPasswordStaysAtChoose) {
    AppStore store;
    auto a = account("Nopass", "nobody");
    store.checkCleanup(a, "INBOX", std::chrono::system_clock::now());
    EXPECT_EQ(store.cleanup().stage(), qs::CleanupStage::choose);
    ASSERT_TRUE(store.cleanup().error());
    EXPECT_EQ(store.cleanup().error()->title, "No saved password for Nopass");
    EXPECT_FALSE(store.cleanup().busy());
}

TEST_F(AppStoreBackupTest, ImportCountsSkipsAndRepeats) {
    const fs::path corpus = QS_CORPUS_DIR;
    // Eight messages, each after a blank line and a "From " line.
    const fs::path mbox = corpus / "dovecot-imaptest/tests/sort-size.mbox";
    fs::path picture = dir.path() / "photo.eml";
    std::ofstream(picture, std::ios::binary) << std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
    AppStore store;
    QSignalSpy finished(&store, &AppStore::importFinished);

    store.importFiles({mbox, picture, dir.path() / "missing.eml"});
    EXPECT_EQ(store.importMessage(), QStringLiteral("Importing…"));
    ASSERT_TRUE(waitFor(finished));
    EXPECT_EQ(store.importMessage(), QStringLiteral("Imported 8 messages · 2 skipped"));
    EXPECT_EQ(store.toast()->text, "Imported 8 messages · 2 skipped");
    EXPECT_EQ(store.toast()->symbol, "tray.and.arrow.down.fill");
    const size_t files = fileCount(vault() / "Imported" / "sort-size");
    EXPECT_EQ(files, 8u);

    // Again: the same count (a message already filed counts as filed), no new file.
    store.importFiles({mbox});
    ASSERT_TRUE(waitFor(finished, 2));
    EXPECT_EQ(store.importMessage(), QStringLiteral("Imported 8 messages"));
    EXPECT_EQ(fileCount(vault() / "Imported"), files);

    store.importFiles({picture});
    ASSERT_TRUE(waitFor(finished, 3));
    EXPECT_EQ(store.importMessage(), QStringLiteral("Imported 0 messages · 1 skipped"));
    EXPECT_EQ(store.toast()->text, "Nothing imported — 1 file wasn’t a valid email");
    EXPECT_EQ(store.toast()->tint, "caution");

    // A path that can't be read is named as such, not as a file that isn't mail.
    store.importFiles({dir.path() / "missing.eml", dir.path()});
    ASSERT_TRUE(waitFor(finished, 4));
    EXPECT_EQ(store.toast()->text, "Nothing imported — 2 files couldn’t be read");
    ASSERT_EQ(store.importOutcomes().size(), 2u);
    EXPECT_EQ(store.importOutcomes()[1].reason, qs::ImportOutcome::Skip::directory);
}

} // namespace
