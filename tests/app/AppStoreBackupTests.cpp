// Backups, the schedule, the cleanup walk and import, driven through the store as the window
// drives it, against a real Dovecot on loopback.

#include "model/AppStore.h"
#include "model/BackupStatus.h"
#include "model/Credentials.h"
#include "model/SettingsKeys.h"
#include "model/VerifyPacing.h"

#include "ScopedEnvironment.h"
#include "support/Corpus.h"
#include "support/DovecotEnvironment.h"
#include "support/TemporaryDirectory.h"

#include <QSettings>
#include <QSignalSpy>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using qs::AppStore;
using qs::MailAccount;
using qs::test::DovecotFixture;

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
    SilentPort() {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ::bind(fd_, reinterpret_cast<sockaddr*>(&address), length);
        ::listen(fd_, 4);
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~SilentPort() { ::close(fd_); }
    uint16_t port() const { return port_; }

private:
    int fd_ = -1;
    uint16_t port_ = 0;
};

// Small real messages from the corpus, CR LF as a server keeps them.
std::vector<std::string> corpusMail(size_t count) {
    std::vector<std::string> mail;
    for (const auto& message : qs::test::corpusMessages()) {
        const std::string& bytes = message.bytes;
        if (bytes.size() < 200 || bytes.size() > 50'000 || bytes.find('\0') != std::string::npos ||
            bytes.find('\r') != std::string::npos || !bytes.starts_with("From:")) {
            continue;
        }
        std::string crlf;
        for (char c : bytes) {
            if (c == '\n') {
                crlf += '\r';
            }
            crlf += c;
        }
        mail.push_back(std::move(crlf));
        if (mail.size() == count) {
            break;
        }
    }
    return mail;
}

size_t fileCount(const fs::path& root) {
    size_t count = 0;
    if (fs::exists(root)) {
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            count += entry.is_regular_file() && entry.path().extension() == ".eml";
        }
    }
    return count;
}

class AppStoreBackupTest : public ::testing::Test {
protected:
    void SetUp() override {
        settings().clear();
        environment.set("QUERNSTEAD_ARCHIVE_DIR", vault().string());
        environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "credentials.json").string());
    }
    void TearDown() override { settings().clear(); }

    static QSettings settings() {
        return QSettings(qs::SettingsKeys::organisation, qs::SettingsKeys::application);
    }
    fs::path vault() const { return dir.path() / "vault"; }

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

    qs::test::TemporaryDirectory dir;
    qs::test::ScopedEnvironment environment;
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
    EXPECT_FALSE(store.backup().running);
    EXPECT_TRUE(store.backup().lastFinished);
    ASSERT_TRUE(store.toast());
    EXPECT_EQ(store.toast()->text, "Backup finished — 1 account needs attention");
    EXPECT_EQ(store.toast()->tint, "caution");
    EXPECT_FALSE(stored(store, bad).lastBackup);
    EXPECT_TRUE(stored(store, fine).lastBackup);
    EXPECT_EQ(store.ledger().at("Fine/INBOX"), (qs::LedgerLine{false, 3, 3, true, 3}));
    EXPECT_EQ(fileCount(vault() / "Fine"), 3u);

    // The next run of the good account alone clears nothing of the other's problem.
    store.backUpNow(fine);
    ASSERT_TRUE(waitFor(finished, 2));
    EXPECT_EQ(store.backup().lastMessage, "Everything was already in the vault");
    EXPECT_EQ(store.toast()->text, "Everything was already in the vault");
    EXPECT_EQ(store.toast()->symbol, "checkmark.shield.fill");
    EXPECT_EQ(store.backupProblems().size(), 1u);
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
    EXPECT_EQ(store.toast()->symbol, "stop.circle.fill");
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

TEST_F(AppStoreBackupTest, CleanupWalkFromChooseToDone) {
    auto& dovecot = DovecotFixture::shared();
    auto user = freshUser("clean");
    dovecot.deliverAll(user, "INBOX", corpusMail(5));
    AppStore store;
    auto a = account("Clean", user);
    store.addAccount(a, "secret");
    QSignalSpy finished(&store, &AppStore::backupFinished);
    store.backUpNow();
    ASSERT_TRUE(waitFor(finished));
    ASSERT_EQ(store.backup().lastMessage, "5 new messages saved");

    auto& cleanup = store.cleanup();
    QSignalSpy busy(&cleanup, &qs::CleanupModel::busyChanged);
    const auto tomorrow = std::chrono::system_clock::now() + 48h;

    // Cancelled during verification: back to choose.
    store.checkCleanup(a, "INBOX", tomorrow);
    EXPECT_EQ(cleanup.stage(), qs::CleanupStage::verify);
    EXPECT_TRUE(cleanup.busy());
    store.cancelCleanup();
    EXPECT_EQ(cleanup.stage(), qs::CleanupStage::choose);
    EXPECT_FALSE(cleanup.busy());

    store.checkCleanup(a, "INBOX", tomorrow);
    while (cleanup.busy()) {
        ASSERT_TRUE(busy.wait(waitMilliseconds));
    }
    ASSERT_FALSE(cleanup.error()) << *cleanup.error();
    ASSERT_TRUE(cleanup.plan());
    EXPECT_EQ(cleanup.checked(), 5);
    ASSERT_EQ(cleanup.plan()->verified().size(), 5u);
    const int64_t bytes = cleanup.plan()->verifiedBytes();

    cleanup.setStageFromView(int(qs::CleanupStage::release));
    EXPECT_EQ(cleanup.stage(), qs::CleanupStage::release);
    QSignalSpy stage(&cleanup, &qs::CleanupModel::stageChanged);
    store.runCleanup(a);
    EXPECT_EQ(cleanup.released(), (qs::CleanupModel::Released{0, 5}));
    ASSERT_TRUE(waitFor(stage));
    while (cleanup.busy()) {
        ASSERT_TRUE(busy.wait(waitMilliseconds));
    }
    EXPECT_EQ(cleanup.stage(), qs::CleanupStage::done);
    EXPECT_FALSE(cleanup.error());
    EXPECT_EQ(cleanup.released(), (qs::CleanupModel::Released{5, 5}));
    const QString size = QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
    EXPECT_EQ(QString::fromStdString(*cleanup.result()),
              QStringLiteral("5 messages · %1 released from Clean › INBOX. Your verified "
                             "copies stay in the vault.")
                  .arg(size));
    EXPECT_EQ(store.toast()->text, "Released 5 from the server · copies safe in the vault");
    EXPECT_TRUE(dovecot.messages(user, "INBOX").empty());
    EXPECT_EQ(fileCount(vault() / "Clean"), 5u);

    store.resetCleanup();
    EXPECT_EQ(cleanup.stage(), qs::CleanupStage::choose);
    EXPECT_FALSE(cleanup.plan());
    EXPECT_FALSE(cleanup.result());
    EXPECT_EQ(cleanup.checked(), 0);
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
}

} // namespace
