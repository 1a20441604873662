#include "cleanup/Cleaner.h"
#include "cleanup/CleanupError.h"
#include "cleanup/CleanupPlan.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

using namespace qs;
using Status = CleanupItem::Status;

TEST(CleanupItem, KeptReasonNamesWhyAMessageStays) {
    struct Row {
        Status status;
        std::optional<std::string> reason;
    };
    const Row rows[] = {
        {Status::verified(), std::nullopt},
        {Status::sizeMismatch(1233, 1234), "Local copy is 1233 bytes, the server’s is 1234"},
        {Status::notBackedUp(), "Not in your vault yet — run a backup first"},
        {Status::unreadable(), "Local copy doesn’t read as a complete email"},
    };
    for (const Row& row : rows) {
        CleanupItem item{7, 1234, std::nullopt, "a.eml", row.status};
        EXPECT_EQ(item.keptReason(), row.reason) << row.status;
    }
}

TEST(CleanupError, TextsTellWhatLeftAndWhatStayed) {
    struct Row {
        CleanupError error;
        std::string text;
    };
    const Row rows[] = {
        {CleanupError::otherDeletedMessages(3),
         "This server can only remove all messages marked for deletion at once, and 3 other "
         "message(s) in the folder are already marked. Nothing was deleted."},
        {CleanupError::stopped(400, 450, "EXPUNGE failed (NO): disk full"),
         "Released 400 of 450 messages, then the server reported a problem (EXPUNGE failed (NO): "
         "disk full). The other 50 are still on the server, untouched."},
        {CleanupError::stopped(0, 450, "x"),
         "Released 0 of 450 messages, then the server reported a problem (x). The other 450 are "
         "still on the server, untouched."},
        {CleanupError::stopped(0, 450), "Stopped before anything was released."},
        {CleanupError::stopped(200, 450),
         "Stopped after releasing 200 of 450 messages. The other 250 stay on the server."},
        {CleanupError::uidValidityChanged(),
         "The folder was renumbered on the server since it was checked. Run a backup, then "
         "check again."},
        {CleanupError::nothingVerified(),
         "No message in the selection has a verified copy in your vault. Nothing was deleted."},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.error.description(), row.text);
        EXPECT_STREQ(row.error.what(), row.text.c_str());
    }
    EXPECT_NE(CleanupError::stopped(1, 2), CleanupError::stopped(1, 2, "x"));
}

TEST(CleanupPlan, DerivedValuesCountOnlyWhatTheyName) {
    CleanupPlan plan;
    plan.items = {
        {1, 100, std::nullopt, "1.eml", Status::verified()},
        {2, 200, std::nullopt, "2.eml", Status::pending()},
        {3, 300, std::nullopt, "3.eml", Status::sizeMismatch(299, 300)},
        {4, 400, std::nullopt, "4.eml", Status::verified()},
        {5, 500, std::nullopt, std::nullopt, Status::notBackedUp()},
        {6, 600, std::nullopt, "6.eml", Status::unreadable()},
        {7, 700, std::nullopt, "7.eml", Status::pending()},
    };
    EXPECT_EQ(plan.verified().size(), 2u);
    ASSERT_EQ(plan.unverified().size(), 3u);
    EXPECT_EQ(plan.unverified()[1].uid, 5u);
    EXPECT_EQ(plan.pending(), 2);
    EXPECT_EQ(plan.verifiedBytes(), 500);

    for (auto [uidplus, others, safe] :
         {std::tuple{true, 5, true}, {false, 0, true}, {false, 1, false}}) {
        plan.serverSupportsUIDPlus = uidplus;
        plan.otherDeletedOnServer = others;
        EXPECT_EQ(plan.canDeleteSafely(), safe) << uidplus << " " << others;
    }
}

namespace fs = std::filesystem;

void put(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

TEST(CleanerVerify, OnlyAWholeMailOfTheServersSizeIsProven) {
    test::TemporaryDirectory directory;
    const std::string mail = "From: a@example.org\r\nSubject: hi\r\n\r\nbody\r\n";
    const auto size = static_cast<int64_t>(mail.size());
    struct Row {
        const char* name;
        std::optional<std::string> content; // nothing: no file at all
        int64_t serverSize;
        Status expected;
    };
    const Row rows[] = {
        {"exact copy", mail, size, Status::verified()},
        {"one byte short", mail.substr(0, mail.size() - 1), size,
         Status::sizeMismatch(size - 1, size)},
        {"missing", std::nullopt, size, Status::notBackedUp()},
        {"text but not mail", std::string(mail.size(), 'x'), size, Status::unreadable()},
        {"empty file, empty on server", "", 0, Status::unreadable()},
    };
    for (const Row& row : rows) {
        fs::path file = directory.path() / (std::string(row.name) + ".eml");
        if (row.content) {
            put(file, *row.content);
        }
        EXPECT_EQ(Cleaner::verify(file, row.serverSize), row.expected) << row.name;
    }
    fs::create_directories(directory.path() / "folder.eml");
    EXPECT_EQ(Cleaner::verify(directory.path() / "folder.eml", 4096), Status::notBackedUp());

    ArchiveLayout layout{directory.path()};
    CleanupItem item{1, size, std::nullopt, "exact copy.eml", Status::pending()};
    EXPECT_EQ(Cleaner::verify(item, layout), Status::verified());
    item.localPath.reset();
    EXPECT_EQ(Cleaner::verify(item, layout), Status::notBackedUp());
}

TEST(CleanerFilesByUID, ReadsTheUIDAtTheEndOfEachMessageName) {
    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    const fs::path folder = layout.url("Acct/INBOX");
    for (const char* name : {
             "2024/2024-01-02 Hello 17.eml",       // the usual name
             "2024/Deep/More/Re  spaced   18.EML", // any depth, any case, runs of blanks
             "2023/19.eml",                        // the UID alone
             "2024/Hello 20 (2).eml",              // a collision name: no UID
             "2024/Hello 21.txt",                  // not a message file
             "2024/Hello 99999999999.eml",         // beyond 32 bits
             "2024/Hello -22.eml",                 // not decimal
             "2024/a 23.eml", "2024/b 23.eml",     // two claim one UID: the first in path order
         }) {
        put(folder / name, "x");
    }
    put(layout.url("Acct/Other/Elsewhere 24.eml"), "x");

    EXPECT_EQ(Cleaner::filesByUID(layout, "Acct/INBOX"),
              (std::map<uint32_t, std::string>{
                  {17, "Acct/INBOX/2024/2024-01-02 Hello 17.eml"},
                  {18, "Acct/INBOX/2024/Deep/More/Re  spaced   18.EML"},
                  {19, "Acct/INBOX/2023/19.eml"},
                  {23, "Acct/INBOX/2024/a 23.eml"},
              }));
    EXPECT_TRUE(Cleaner::filesByUID(layout, "Acct/Missing").empty());
}

} // namespace
