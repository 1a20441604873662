#include "backup/Importer.h"
#include "support/FileIO.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using qs::Importer::splitMbox;

TEST(MboxSplit, SplitsAsExpected) {
    struct Row {
        const char* name;
        std::string mbox;
        std::vector<std::string> messages;
    };
    // clang-format off
    const Row rows[] = {
        {"no separator", "Subject: x\n\nbody\n", {}},
        {"trailing blank lines stripped", "From a\nS: x\n\nbody\n\n\r\n\n", {"S: x\n\nbody\r\n"}},
        {"two", "From a\nS: 1\n\nb1\n\nFrom b\nS: 2\n\nb2\n", {"S: 1\n\nb1\r\n", "S: 2\n\nb2\r\n"}},
        {"From after a text line stays inside", "From a\nS: 1\n\nline\nFrom here on\n",
         {"S: 1\n\nline\nFrom here on\r\n"}},
        {"bytes before the first separator dropped", "junk\n\nFrom a\nS: 1\n", {"S: 1\r\n"}},
        {"CRLF lines", "From a\r\nS: 1\r\n\r\nb1\r\n\r\nFrom b\r\nS: 2\r\n",
         {"S: 1\r\n\r\nb1\r\n", "S: 2\r\n"}},
        {"CR-only lines split and keep their ends", "From a\rS: 1\r\r>From b1\r\rFrom b\rS: 2\r",
         {"S: 1\r\rFrom b1\r", "S: 2\r"}},
        {"one quote before From dropped", "From a\nS: 1\n\n>From me\n>>From you\n",
         {"S: 1\n\nFrom me\n>From you\r\n"}},
        {"quotes not before From kept", "From a\nS: 1\n\n>Fromage\n> From x\nx >From y\n>\n",
         {"S: 1\n\n>Fromage\n> From x\nx >From y\n>\r\n"}},
        {"blank message between separators", "From a\n\nFrom b\nS: 2\n", {"\r\n", "S: 2\r\n"}},
    };
    // clang-format on
    for (const Row& row : rows) {
        EXPECT_EQ(splitMbox(row.mbox), row.messages) << row.name;
    }
}

// 225 separator lines by an independent scan; one is mailbox_01.mbox's last line and opens an
// empty message. content-length.mbox.txt escapes two body lines and leaves other "From " lines.
TEST(MboxSplitCorpus, AllMboxFilesGiveTheListedMembersUnescaped) {
    size_t files = 0;
    size_t total = 0;
    size_t unescaped = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(QS_CORPUS_DIR)) {
        auto name = entry.path().filename().string();
        if (!entry.is_regular_file() ||
            !(name.ends_with(".mbox") || name.ends_with(".mbox.txt") || name == "mbox.rlug")) {
            continue;
        }
        ++files;
        auto messages = splitMbox(qs::FileIO::read(entry.path()));
        for (const auto& message : messages) {
            EXPECT_TRUE(message.ends_with("\r\n")) << name;
            EXPECT_FALSE(message.ends_with("\n\r\n")) << name;
            EXPECT_EQ(message.find("\n>From - Fri Dec 13 15:01:21 1996\n"), std::string::npos);
            for (auto at = message.find("\nFrom - Fri Dec 13 15:01:21 1996\n");
                 at != std::string::npos && name == "content-length.mbox.txt";
                 at = message.find("\nFrom - Fri Dec 13 15:01:21 1996\n", at + 1)) {
                ++unescaped;
            }
        }
        total += messages.size();
    }
    EXPECT_EQ(files, 46u);
    EXPECT_EQ(total, 224u);
    EXPECT_EQ(unescaped, 2u);
}

TEST(Fingerprint, IsTheLowHalfOfFNV1a64) {
    // Published FNV-1a 64-bit vectors: cbf29ce484222325, af63dc4c8601ec8c, 85944171f73967e8.
    EXPECT_EQ(qs::Importer::fingerprint(""), "84222325");
    EXPECT_EQ(qs::Importer::fingerprint("a"), "8601ec8c");
    EXPECT_EQ(qs::Importer::fingerprint("foobar"), "f73967e8");
}

} // namespace
