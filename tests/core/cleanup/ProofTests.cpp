#include "cleanup/Cleaner.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using Status = CleanupItem::Status;

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
