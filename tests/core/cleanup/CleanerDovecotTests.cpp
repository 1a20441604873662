#include "backup/BackupRunner.h"
#include "cleanup/Cleaner.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"
#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/TemporaryDirectory.h"
#include "vault/VaultLock.h"

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using test::DovecotFixture;
using Status = CleanupItem::Status;

TEST(CleanerWithDovecot, ReleasesExactlyTheProvenMessagesAndTouchesNoFile) {
    DovecotFixture& dovecot = DovecotFixture::shared();
    dovecot.addUser("cleanup", "secret");
    const int64_t old = 1577836800;              // 1 Jan 2020
    const int64_t recent = 1700000000;           // Nov 2023
    const Date limit = dateFromUnix(1609459200); // 1 Jan 2021
    std::vector<std::string> mail = test::corpusMail(30, {200, 200'000, true, true, false});
    ASSERT_EQ(mail.size(), 30u);
    std::vector<test::SeedMessage> inbox;
    for (size_t i = 0; i < 30; ++i) {
        inbox.push_back({mail[i], i < 20 ? old + static_cast<int64_t>(i) * 86400 : recent});
    }
    test::seedFolders(dovecot, "cleanup", {{"INBOX", inbox}});

    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    MailAccount account;
    account.id = UUID::random();
    account.label = "Cleanup";
    account.username = "cleanup";
    account.server = {"127.0.0.1", dovecot.imapsPort(), false};
    account.folders = {"INBOX"};
    ASSERT_EQ(BackupRunner(layout, account, "secret").run({}).newMessages, 30);

    // One copy lost from the vault: that message can't be proven and must stay.
    FolderState filed = layout.loadSync(account).folders.at("INBOX");
    fs::remove(layout.url(filed.files.at("5")));
    auto vaultBefore = test::snapshotFiles(layout.root, VaultLock::fileName);
    std::string syncBefore = FileIO::read(layout.syncURL(account));

    Cleaner cleaner(layout, account, "secret");
    cleaner.chunkSize = 7;
    CleanupPlan plan = cleaner.plan("INBOX", limit);
    ASSERT_EQ(plan.items.size(), 20u) << plan;
    EXPECT_EQ(plan.verified().size(), 19u) << plan;
    EXPECT_EQ(plan.items[4].status, Status::notBackedUp());
    EXPECT_TRUE(plan.serverSupportsUIDPlus);
    EXPECT_EQ(plan.uidValidity, filed.uidValidity);
    EXPECT_EQ(plan.otherDeletedOnServer, 0);

    std::vector<std::pair<int64_t, int64_t>> progress;
    EXPECT_EQ(cleaner.execute(
                  plan, [&](int64_t done, int64_t total) { progress.emplace_back(done, total); }),
              19);
    EXPECT_EQ(progress.front(), (std::pair<int64_t, int64_t>{0, 19}));
    EXPECT_EQ(progress.back(), (std::pair<int64_t, int64_t>{19, 19}));
    EXPECT_EQ(progress.size(), 1u + 3u) << "chunks of 7, 7 and 5";

    std::vector<uint32_t> left;
    for (const auto& message : dovecot.messages("cleanup", "INBOX")) {
        left.push_back(message.uid);
        EXPECT_TRUE(message.flags.empty()) << "UID " << message.uid;
    }
    EXPECT_EQ(left, (std::vector<uint32_t>{5, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30}));
    EXPECT_EQ(test::snapshotFiles(layout.root, VaultLock::fileName), vaultBefore);
    EXPECT_EQ(FileIO::read(layout.syncURL(account)), syncBefore);

    CleanupPlan again = cleaner.survey("INBOX", limit);
    ASSERT_EQ(again.items.size(), 1u);
    EXPECT_EQ(again.items[0].uid, 5u);
}

} // namespace
