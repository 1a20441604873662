// The free-up-space sheet's gates: the typed confirmation and the way on to release; and the
// whole walk against a real Dovecot on loopback, as the sheet drives it.

#include "ui/FreeUpFlow.h"

#include "model/AppStore.h"
#include "model/CleanupModel.h"

#include "app/ScopedEnvironment.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"
#include "support/TemporaryDirectory.h"

#include <QTest>
#include <gtest/gtest.h>

#include <fstream>

namespace qs {
namespace {

namespace fs = std::filesystem;

// Generous: the waits end when the work does; the limit only keeps a broken run from hanging.
constexpr int waitMilliseconds = 60'000;

TEST(FreeUpFlow, OnlyTheExactPhraseConfirms) {
    const struct {
        const char* typed;
        int64_t verified;
        bool confirms;
    } rows[] = {
        {"RELEASE 12", 12, true},
        {"release 12", 12, false},
        {"RELEASE 12 ", 12, false},
        {" RELEASE 12", 12, false},
        {"RELEASE 11", 12, false},
        {"RELEASE 1234", 1'234, true},
        {"RELEASE 1,234", 1'234, false},
        {"RELEASE 1 234", 1'234, false},
        {"", 0, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FreeUpFlow::confirms(QString::fromUtf8(row.typed), row.verified), row.confirms)
            << "'" << row.typed << "' for " << row.verified;
    }
}

TEST(FreeUpFlow, ReleaseOpensOnlyWhenEveryItemIsCheckedOneIsProvenAndTheFolderIsSafe) {
    const struct {
        int64_t checked, items, verified;
        bool safe, expected;
    } rows[] = {
        {12, 12, 12, true, true},   {11, 12, 11, true, false}, // one item still unchecked
        {12, 12, 0, true, false},                              // nothing proven
        {12, 12, 12, false, false}, {0, 0, 0, true, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FreeUpFlow::canContinue(row.checked, row.items, row.verified, row.safe),
                  row.expected)
            << row.checked << "/" << row.items << " verified " << row.verified;
    }
}

TEST(FreeUpFlow, KeptSentenceAgreesWithItsCount) {
    EXPECT_EQ(FreeUpFlow::keptSentence(1),
              "1 message was kept on the server because its copy couldn’t be verified.");
    EXPECT_EQ(FreeUpFlow::keptSentence(3),
              "3 messages were kept on the server because their copies couldn’t be verified.");
}

TEST(FreeUpFlow, StartsOnTheFirstAccountButReopeningMidWalkKeepsTheWalksAccount) {
    test::TemporaryDirectory dir;
    test::ScopedEnvironment environment;
    environment.set("QUERNSTEAD_ARCHIVE_DIR", (dir.path() / "vault").string());
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "credentials.json").string());
    AppStore store;
    for (const char* label : {"Home", "Work"}) {
        MailAccount account;
        account.id = UUID::random();
        account.label = label;
        account.username = label;
        account.server.host = "127.0.0.1";
        account.knownFolders = {{"Archive", "Archive", "/", {}}};
        account.folders = {"Archive"};
        store.addAccount(account, "pw");
    }
    FreeUpFlow flow(store, nullptr);
    flow.start();
    EXPECT_EQ(flow.accountId().toStdString(), store.accounts()[0].id.string());
    EXPECT_EQ(flow.mailbox(), "Archive") << "no INBOX known: the first chosen folder";

    flow.setAccountId(QString::fromStdString(store.accounts()[1].id.string()));
    store.cleanup().setStage(CleanupStage::release);
    flow.start();
    EXPECT_EQ(flow.accountId().toStdString(), store.accounts()[1].id.string());
    store.resetCleanup();
}

// The vault's copy of a message: its file name ends with the server's UID.
fs::path vaultCopy(const fs::path& root, uint32_t uid) {
    const std::string ending = " " + std::to_string(uid);
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string stem = entry.path().stem().string();
        if (entry.path().extension() == ".eml" && stem.ends_with(ending))
            return entry.path();
    }
    return {};
}

// Old mail backed up, one copy then deleted and one changed: the walk releases only what it
// proved, lists the two it keeps, and leaves the server exactly those and the newer mail.
TEST(FreeUpFlow, ReleasesOnlyProvenCopiesFromARealServer) {
    test::TemporaryDirectory dir;
    test::ScopedEnvironment environment;
    const fs::path vault = dir.path() / "vault";
    environment.set("QUERNSTEAD_ARCHIVE_DIR", vault.string());
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "credentials.json").string());
    auto& dovecot = test::DovecotFixture::shared();
    const std::string user = "freeup";
    dovecot.addUser(user, "secret");
    dovecot.createFolder(user, "Archive");
    using Days = std::chrono::days;
    const auto year2020 = std::chrono::sys_days(std::chrono::year(2020) / 3 / 1);
    const std::vector<test::DovecotFixture::Arrival> arrivals{
        year2020,
        year2020 + Days(30),
        year2020 + Days(60),
        year2020 + Days(90),
        year2020 + Days(120), // the last old one; the date chosen below is 2022-01-01
        year2020 + Days(1200),
        std::chrono::system_clock::now()};
    const auto uids =
        dovecot.deliverAll(user, "Archive", test::corpusMail(arrivals.size()), arrivals);
    ASSERT_EQ(uids.size(), arrivals.size());

    AppStore store;
    MailAccount account;
    account.id = UUID::random();
    account.label = "Old Mail";
    account.username = user;
    account.server = {"127.0.0.1", dovecot.imapsPort(), false};
    account.provider = "custom";
    account.knownFolders = {{"INBOX", "INBOX", "/", {}}, {"Archive", "Archive", "/", {}}};
    account.folders = {"Archive"};
    store.addAccount(account, "secret");
    bool finished = false;
    QObject::connect(&store, &AppStore::backupFinished, [&] { finished = true; });
    store.backUpNow();
    ASSERT_TRUE(QTest::qWaitFor([&] { return finished; }, waitMilliseconds));
    ASSERT_EQ(store.backup().lastMessage, "7 new messages saved");

    const fs::path missing = vaultCopy(vault, uids[1]);
    const fs::path changed = vaultCopy(vault, uids[3]);
    ASSERT_FALSE(missing.empty());
    ASSERT_FALSE(changed.empty());
    const auto serverSize = fs::file_size(changed);
    fs::remove(missing);
    std::ofstream(changed, std::ios::binary | std::ios::app) << "An added line.\r\n";
    const QString sizes = QStringLiteral("Local copy is %1 bytes, the server’s is %2")
                              .arg(fs::file_size(changed))
                              .arg(serverSize);

    FreeUpFlow flow(store, nullptr);
    flow.start();
    flow.setMailbox(QStringLiteral("Archive"));
    flow.setBeforeText(QStringLiteral("2022-01-01"));
    const CleanupModel& cleanup = store.cleanup();
    // Cancelled during verification: back to choose.
    flow.verify();
    EXPECT_EQ(cleanup.stage(), CleanupStage::verify);
    store.cancelCleanup();
    EXPECT_EQ(cleanup.stage(), CleanupStage::choose);
    EXPECT_FALSE(cleanup.busy());
    flow.verify();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !cleanup.busy(); }, waitMilliseconds));
    QVariantMap view = flow.view();
    ASSERT_FALSE(view.contains("error")) << view["error"].toMap()["title"].toString().toStdString();
    EXPECT_EQ(view["items"].toLongLong(), 5);
    EXPECT_EQ(view["verified"].toLongLong(), 3);
    EXPECT_EQ(view["kept"].toLongLong(), 2);
    const QVariantList kept = view["keptRows"].toList();
    ASSERT_EQ(kept.size(), 2);
    EXPECT_EQ(kept[0].toMap()["status"], "Not in your vault yet — run a backup first");
    EXPECT_EQ(kept[1].toMap()["status"], sizes);
    EXPECT_EQ(view["keptSentence"], FreeUpFlow::keptSentence(2));
    ASSERT_TRUE(view["canContinue"].toBool());
    flow.continueToRelease();
    ASSERT_EQ(cleanup.stage(), CleanupStage::release);

    // The phrase counts the proven copies, not every old message.
    flow.setConfirmation(QStringLiteral("RELEASE 5"));
    EXPECT_FALSE(flow.view()["canRelease"].toBool());
    flow.release();
    EXPECT_FALSE(cleanup.busy()) << "a wrong phrase starts nothing";
    flow.setConfirmation(QStringLiteral("RELEASE 3"));
    ASSERT_TRUE(flow.view()["canRelease"].toBool());
    flow.release();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return cleanup.stage() == CleanupStage::done && !cleanup.busy(); },
                        waitMilliseconds));
    view = flow.view();
    EXPECT_FALSE(view.contains("error")) << view["error"].toMap()["title"].toString().toStdString();
    EXPECT_EQ(view["released"].toMap()["done"].toLongLong(), 3);
    EXPECT_EQ(QString::fromStdString(*cleanup.result()),
              QStringLiteral("3 messages · %1 released from Old Mail › Archive. Your verified "
                             "copies stay in the vault.")
                  .arg(QLocale().formattedDataSize(cleanup.plan()->verifiedBytes(), 1,
                                                   QLocale::DataSizeSIFormat)));
    EXPECT_EQ(store.toast()->text, "Released 3 from the server · copies safe in the vault");

    std::vector<uint32_t> left;
    for (const auto& message : dovecot.messages(user, "Archive"))
        left.push_back(message.uid);
    EXPECT_EQ(left, (std::vector<uint32_t>{uids[1], uids[3], uids[5], uids[6]}));
    store.resetCleanup();
    EXPECT_EQ(cleanup.stage(), CleanupStage::choose);
    EXPECT_FALSE(cleanup.plan() || cleanup.result());
    EXPECT_EQ(cleanup.checked(), 0);
}

} // namespace
} // namespace qs
