#include "backup/FolderHealth.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace qs {
namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

TEST(FolderHealth, SortsRecordedFilesAndListsWhatWasSetAside) {
    test::TemporaryDirectory dir;
    ArchiveLayout layout{dir.path()};
    FolderState state;
    state.directory = "A/INBOX";
    state.files = {{"1", "A/INBOX/2024/one.eml"},
                   {"2", "A/INBOX/2024/gone.eml"},
                   {"3", "A/INBOX/2024/grown.eml"},
                   {"4", "A/INBOX/2024/unsized.eml"},
                   {"x5", "A/INBOX/2024/one.eml"}};
    state.sizes = std::map<std::string, std::int64_t>{{"1", 3}, {"2", 3}, {"3", 3}};
    writeFile(layout.url("A/INBOX/2024/one.eml"), "abc");
    writeFile(layout.url("A/INBOX/2024/grown.eml"), "abcd");
    writeFile(layout.url("A/INBOX/2024/unsized.eml"), "abcdef");
    for (int i = 0; i < 2; ++i) {
        writeFile(layout.url("A/INBOX/2023/old.eml"), "old");
        FolderHealth::setAsideFile(layout, "A/INBOX/2023/old.eml");
    }
    writeFile(layout.url("B/INBOX/2023/other.eml"), "other");
    FolderHealth::setAsideFile(layout, "B/INBOX/2023/other.eml");

    FolderHealth health = FolderHealth::check(layout, state);
    EXPECT_EQ(health.verified, 2);
    EXPECT_EQ(health.missing, (std::map<std::uint32_t, std::string>{{2, "A/INBOX/2024/gone.eml"}}));
    EXPECT_EQ(health.differing,
              (std::map<std::uint32_t, std::string>{{3, "A/INBOX/2024/grown.eml"}}));
    EXPECT_EQ(health.setAside, (std::vector<std::string>{
                                   ".quernstead/set-aside/A/INBOX/2023/old (2).eml",
                                   ".quernstead/set-aside/A/INBOX/2023/old.eml",
                               }));
    EXPECT_FALSE(fs::exists(layout.url("A/INBOX/2023/old.eml")));
}

} // namespace
} // namespace qs
