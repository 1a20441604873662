#include "backup/Importer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using qs::Importer::splitMbox;

struct SplitCase {
    const char* name;
    std::string mbox;
    std::vector<std::string> messages;
};

class MboxSplit : public testing::TestWithParam<SplitCase> {};

TEST_P(MboxSplit, SplitsAsExpected) {
    EXPECT_EQ(splitMbox(GetParam().mbox), GetParam().messages);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, MboxSplit,
    testing::Values(
        SplitCase{"Empty", "", {}}, SplitCase{"NoSeparator", "Subject: x\n\nbody\n", {}},
        SplitCase{"SeparatorOnlyAtEnd", "From a@b Mon Jan 1 00:00:00 2024", {}},
        SplitCase{"SeparatorWithNothingAfter", "From a@b\n", {}},
        SplitCase{"One", "From a@b Mon\nSubject: x\n\nbody\n", {"Subject: x\n\nbody\r\n"}},
        SplitCase{"TrailingBlankLinesStripped",
                  "From a\nSubject: x\n\nbody\n\n\r\n\n",
                  {"Subject: x\n\nbody\r\n"}},
        SplitCase{"Two",
                  "From a\nSubject: 1\n\nb1\n\nFrom b\nSubject: 2\n\nb2\n",
                  {"Subject: 1\n\nb1\r\n", "Subject: 2\n\nb2\r\n"}},
        SplitCase{"FromAfterTextLineStaysInside",
                  "From a\nSubject: 1\n\nline\nFrom here on it is text\n",
                  {"Subject: 1\n\nline\nFrom here on it is text\r\n"}},
        SplitCase{
            "BytesBeforeFirstSeparatorDropped", "junk\n\nFrom a\nSubject: 1\n", {"Subject: 1\r\n"}},
        SplitCase{"CRLFSplitsOnLoneCR",
                  "From a\r\nSubject: 1\r\n\r\nb1\r\n\r\nFrom b\r\nSubject: 2\r\n\r\nb2\r\n",
                  {"Subject: 1\r\n\r\nb1\r\n", "Subject: 2\r\n\r\nb2\r\n"}},
        SplitCase{"CROnlyLinesSplitAndKeepTheirEnds",
                  "From a\rSubject: 1\r\r>From b1\r\rFrom b\rSubject: 2\r\rb2\r",
                  {"Subject: 1\r\rFrom b1\r", "Subject: 2\r\rb2\r"}},
        SplitCase{"OneQuoteBeforeFromDropped",
                  "From a\nSubject: 1\n\n>From me\n>>From you\n>>>From them\n",
                  {"Subject: 1\n\nFrom me\n>From you\n>>From them\r\n"}},
        SplitCase{"EscapeOnFirstLineOfMessage", "From a\n>From x\n", {"From x\r\n"}},
        SplitCase{
            "EscapeOnCRLFLine", "From a\r\nS: 1\r\n\r\n>From x\r\n", {"S: 1\r\n\r\nFrom x\r\n"}},
        SplitCase{"QuotesNotBeforeFromKept",
                  "From a\nS: 1\n\n>Fromage\n> From x\nx >From y\n>\n",
                  {"S: 1\n\n>Fromage\n> From x\nx >From y\n>\r\n"}},
        SplitCase{
            "BlankMessageBetweenSeparators", "From a\n\nFrom b\nS: 2\n", {"\r\n", "S: 2\r\n"}},
        SplitCase{
            "FromWithoutSpaceIsNoSeparator", "From a\nS: 1\n\nFromage\n", {"S: 1\n\nFromage\r\n"}}),
    [](const testing::TestParamInfo<SplitCase>& info) { return std::string(info.param.name); });

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

const std::filesystem::path corpus = QS_CORPUS_DIR;

// The corpus lists 225 separator lines, found by an independent scan with the same rule. One of
// them, in mailbox_01.mbox, is the file's last line ("From time to time" after a blank line), so
// the message it opens is empty and skipped: 224.
TEST(MboxSplitCorpus, AllMboxFilesGiveTheListedMemberCount) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
        auto name = entry.path().filename().string();
        if (entry.is_regular_file() &&
            (name.ends_with(".mbox") || name.ends_with(".mbox.txt") || name == "mbox.rlug")) {
            files.push_back(entry.path());
        }
    }
    ASSERT_EQ(files.size(), 46u);
    size_t total = 0;
    for (const auto& file : files) {
        auto messages = splitMbox(readFile(file));
        for (const auto& message : messages) {
            EXPECT_TRUE(message.ends_with("\r\n")) << file;
            EXPECT_FALSE(message.ends_with("\n\r\n")) << file;
        }
        total += messages.size();
    }
    EXPECT_EQ(total, 224u);
}

TEST(MboxSplitCorpus, EscapedFromLinesComeBackUnescaped) {
    // The file escapes two body lines as ">From - Fri Dec 13 15:01:21 1996" and leaves many other
    // "From " body lines (after text lines) as they are.
    auto data = readFile(corpus / "mimekit/mbox/content-length.mbox.txt");
    const std::string escaped = "\n>From - Fri Dec 13 15:01:21 1996\n";
    const std::string unescaped = "\nFrom - Fri Dec 13 15:01:21 1996\n";
    ASSERT_NE(data.find(escaped), std::string::npos);
    auto messages = splitMbox(data);
    EXPECT_EQ(messages.size(), 19u);
    size_t found = 0;
    for (const auto& message : messages) {
        EXPECT_EQ(message.find(escaped), std::string::npos);
        for (size_t at = message.find(unescaped); at != std::string::npos;
             at = message.find(unescaped, at + 1)) {
            ++found;
        }
    }
    EXPECT_EQ(found, 2u);
}

TEST(Fingerprint, IsTheLowHalfOfFNV1a64) {
    // Published FNV-1a 64-bit test vectors: "" -> cbf29ce484222325, "a" -> af63dc4c8601ec8c,
    // "foobar" -> 85944171f73967e8.
    EXPECT_EQ(qs::Importer::fingerprint(""), "84222325");
    EXPECT_EQ(qs::Importer::fingerprint("a"), "8601ec8c");
    EXPECT_EQ(qs::Importer::fingerprint("foobar"), "f73967e8");
    EXPECT_EQ(qs::Importer::fingerprint(std::string("\0\xff", 2)).size(), 8u);
}

} // namespace
