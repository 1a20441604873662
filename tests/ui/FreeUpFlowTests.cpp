// The free-up-space sheet: its gates, and the whole walk against a real Dovecot as the sheet
// drives it.

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

// Only keeps a broken run from hanging.
constexpr int waitMilliseconds = 60'000;

TEST(FreeUpFlow, OnlyTheExactPhraseConfirmsAndOnlyAProvenSafeCheckGoesOn) {
    // clang-format off
    const std::pair<const char*, bool> phrases[] = {
        {"RELEASE 1234", true}, {"release 1234", false}, {"RELEASE 1234 ", false},
        {" RELEASE 1234", false}, {"RELEASE 1233", false}, {"RELEASE 1,234", false},
        {"RELEASE 1 234", false}, {"", false}};
    // clang-format on
    for (const auto& [typed, confirms] : phrases)
        EXPECT_EQ(FreeUpFlow::confirms(QString::fromUtf8(typed), 1'234), confirms) << typed;
    EXPECT_FALSE(FreeUpFlow::confirms("", 0));

    // Every item checked, one proven, and the folder safe.
    // clang-format off
    const struct {
        int64_t checked, items, verified;
        bool safe, expected;
    } rows[] = {{12, 12, 12, true, true}, {11, 12, 11, true, false}, {12, 12, 0, true, false},
                {12, 12, 12, false, false}, {0, 0, 0, true, false}};
    // clang-format on
    for (const auto& row : rows) {
        EXPECT_EQ(FreeUpFlow::canContinue(row.checked, row.items, row.verified, row.safe),
                  row.expected)
            << row.checked << "/" << row.items << " verified " << row.verified;
    }
    EXPECT_EQ(FreeUpFlow::keptSentence(1),
              "1 message was kept on the server because its copy couldn’t be verified.");
}

// The vault's copy of a message: its file name ends with the server's UID.
fs::path vaultCopy(const fs::path& root, uint32_t uid) {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.path().extension() == ".eml" &&
            entry.path().stem().string().ends_with(" " + std::to_string(uid)))
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
    // The fifth is the last before the date chosen below, 2022-01-01.
    const auto march2020 = std::chrono::sys_days(std::chrono::year(2020) / 3 / 1);
    std::vector<test::DovecotFixture::Arrival> arrivals;
    for (int days : {0, 30, 60, 90, 120, 1200})
        arrivals.push_back(march2020 + std::chrono::days(days));
    arrivals.push_back(std::chrono::system_clock::now());
    const auto uids =
        dovecot.deliverAll(user, "Archive", test::corpusMail(arrivals.size()), arrivals);
    ASSERT_EQ(uids.size(), arrivals.size());

    AppStore store;
    MailAccount first; // no INBOX known, never backed up
    first.id = UUID::random();
    first.label = first.username = "Home";
    first.server.host = "127.0.0.1";
    first.knownFolders = {{"Archive", "Archive", "/", {}}};
    first.folders = {"Archive"};
    store.addAccount(first, "pw");
    MailAccount account;
    account.id = UUID::random();
    account.label = "Old Mail";
    account.username = user;
    account.server = {"127.0.0.1", dovecot.imapsPort(), false};
    account.knownFolders = {{"INBOX", "INBOX", "/", {}}, {"Archive", "Archive", "/", {}}};
    account.folders = {"Archive"};
    store.addAccount(account, "secret");
    bool finished = false;
    QObject::connect(&store, &AppStore::backupFinished, [&] { finished = true; });
    store.backUpNow(account);
    ASSERT_TRUE(QTest::qWaitFor([&] { return finished; }, waitMilliseconds));
    ASSERT_EQ(store.backup().lastMessage, "7 new messages saved");

    const fs::path missing = vaultCopy(vault, uids[1]);
    const fs::path changed = vaultCopy(vault, uids[3]);
    ASSERT_FALSE(missing.empty() || changed.empty());
    const auto serverSize = fs::file_size(changed);
    fs::remove(missing);
    std::ofstream(changed, std::ios::binary | std::ios::app) << "An added line.\r\n";

    FreeUpFlow flow(store, nullptr);
    flow.start();
    EXPECT_EQ(flow.accountId().toStdString(), first.id.string()) << "the first account";
    EXPECT_EQ(flow.mailbox(), "Archive") << "no INBOX known: the first chosen folder";
    flow.setAccountId(QString::fromStdString(account.id.string()));
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
    const QVariantList kept = view["keptRows"].toList();
    ASSERT_EQ(kept.size(), 2);
    EXPECT_EQ(kept[0].toMap()["status"], "Not in your vault yet — run a backup first");
    EXPECT_EQ(kept[1].toMap()["status"],
              QStringLiteral("Local copy is %1 bytes, the server’s is %2")
                  .arg(fs::file_size(changed))
                  .arg(serverSize));
    EXPECT_EQ(view["keptSentence"],
              "2 messages were kept on the server because their copies couldn’t be verified.");
    flow.continueToRelease();
    ASSERT_EQ(cleanup.stage(), CleanupStage::release);
    flow.start(); // reopened mid-walk: the walk keeps its account
    EXPECT_EQ(flow.accountId().toStdString(), account.id.string());

    // The phrase counts the proven copies, not every old message.
    flow.setConfirmation(QStringLiteral("RELEASE 5"));
    flow.release();
    EXPECT_FALSE(cleanup.busy()) << "a wrong phrase starts nothing";
    flow.setConfirmation(QStringLiteral("RELEASE 3"));
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
    EXPECT_FALSE(cleanup.plan() || cleanup.result());
    EXPECT_EQ(cleanup.checked(), 0);
}

} // namespace
} // namespace qs
