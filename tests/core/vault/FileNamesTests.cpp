#include "vault/FileNames.h"

#include "support/Unicode.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <iostream>

namespace {

std::string repeat(std::string_view piece, size_t count) {
    std::string out;
    for (size_t i = 0; i < count; ++i) {
        out += piece;
    }
    return out;
}

struct SanitizeCase {
    const char* name;
    std::string input;
    size_t max;
    size_t maxBytes;
    std::string expected;
};

TEST(FileNamesSanitize, Table) {
    const std::vector<SanitizeCase> cases = {
        {"plain text is kept", "Quarterly report", 80, 150, "Quarterly report"},
        {"only slashes empty", "///", 60, 150, ""},
        {"slash and colon become blanks that fold", "Re: a/b", 80, 150, "Re a b"},
        {"all nine unsafe characters", R"(a/b\c:d*e?f"g<h>i|j)", 80, 150, "a b c d e f g h i j"},
        {"runs of spaces fold", "  a    b  ", 80, 150, "a b"},
        {"CR LF is one character, one blank", "a\r\nb", 80, 150, "a b"},
        {"every line break kind", "a\nb\vc\fd\re\u0085f\u2028g\u2029h", 80, 150, "a b c d e f g h"},
        {"tab", "a\tb", 80, 150, "a b"},
        {"control characters and DEL",
         "a\x01"
         "b\x1f"
         "c\x7f"
         "d",
         80, 150, "a b c d"},
        {"NUL is unsafe too", std::string("a\0b", 3), 80, 150, "a b"},
        {"unicode blanks trimmed, kept inside", "\u00a0\u3000x\u00a0y\u2003", 80, 150, "x\u00a0y"},
        {"leading dots dropped", "...hidden", 80, 150, "hidden"},
        {"dots alone become empty", "....", 80, 150, ""},
        {"dot, blank, letter ends as the letter", ". x", 80, 150, "x"},
        {"inner and trailing dots stay", "a.b.", 80, 150, "a.b."},
        {"cut by characters, then trimmed", "abc def", 4, 150, "abc"},
        {"cut by bytes on character boundaries", "日本語テキスト", 80, 10, "日本語"},
        {"combining sequences stay whole", repeat("e\u0301", 5), 80, 7, repeat("e\u0301", 2)},
        {"ill-formed UTF-8 becomes U+FFFD",
         "a\xff"
         "b",
         80, 150,
         "a\ufffd"
         "b"},
        {"empty stays empty", "", 80, 150, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(qs::FileNames::sanitize(c.input, c.max, c.maxBytes), c.expected) << c.name;
    }
}

TEST(FileNamesSanitize, TwoHundredEmojiAreCutByCharactersThenBytes) {
    // Each is one character of 8 bytes (thumbs up with a skin tone).
    const std::string emoji = "\U0001F44D\U0001F3FD";
    auto result = qs::FileNames::sanitize(repeat(emoji, 200), 80, 150);
    EXPECT_EQ(result, repeat(emoji, 150 / emoji.size()));
    EXPECT_LE(result.size(), 150u);
    EXPECT_TRUE(qs::Unicode::isValidUTF8(result));

    // With a byte limit that is not a boundary, the cut still falls between characters.
    auto family = std::string("\U0001F468\u200D\U0001F469\u200D\U0001F467"); // one character
    EXPECT_EQ(qs::FileNames::sanitize(repeat(family, 3), 80, family.size() * 2 + 5),
              repeat(family, 2));
}

TEST(FileNamesTruncateUTF8, KeepsWholeCharacters) {
    EXPECT_EQ(qs::FileNames::truncateUTF8("abc", 3), "abc");
    EXPECT_EQ(qs::FileNames::truncateUTF8("abc", 2), "ab");
    EXPECT_EQ(qs::FileNames::truncateUTF8("日本語", 8), "日本");
    EXPECT_EQ(qs::FileNames::truncateUTF8("日本語", 2), "");
    EXPECT_EQ(qs::FileNames::truncateUTF8("", 0), "");
    // The first character past the limit ends the walk, even if a later one would fit.
    EXPECT_EQ(qs::FileNames::truncateUTF8("a日b", 3), "a");
}

TEST(FileNamesFolderDirectory, Table) {
    struct Case {
        const char* name;
        qs::IMAPMailbox mailbox;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"display name, not the wire name", {"&AMQ-rger", "Ärger", "/", {}}, "Ärger"},
        {"two levels with slash",
         {"Work/Projects/2024", "Work/Projects/2024", "/", {}},
         "Work - Projects - 2024"},
        {"two levels with dot",
         {"INBOX.Sub.Deep", "INBOX.Sub.Deep", ".", {}},
         "INBOX - Sub - Deep"},
        {"no delimiter: a slash is only unsafe", {"a/b", "a/b", std::nullopt, {}}, "a b"},
        {"empty delimiter is ignored", {"a.b", "a.b", "", {}}, "a.b"},
        {"nothing safe left gives Folder", {"///", "///", std::nullopt, {}}, "Folder"},
        {"dots only give Folder", {"..", "..", "/", {}}, "Folder"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(qs::FileNames::folderDirectory(c.mailbox), c.expected) << c.name;
    }
}

// Noon UTC falls on the same day in every zone from UTC-11 to UTC+11, so these cases hold on
// any ordinary test machine; the zone itself is tested below.
TEST(FileNamesMessagePath, JoinsYearDaySubjectAndId) {
    auto noon = qs::dateFromUnix(1'709'294'400); // 2024-03-01T12:00:00Z
    EXPECT_EQ(qs::FileNames::messagePath(noon, "Lunch: Friday?", "42"),
              "2024/2024-03-01 Lunch Friday 42.eml");
    EXPECT_EQ(qs::FileNames::messagePath(noon, "   ", "7"), "2024/2024-03-01 (no subject) 7.eml");
    EXPECT_EQ(qs::FileNames::messagePath(noon, "", "7"), "2024/2024-03-01 (no subject) 7.eml");
    auto longSubject = qs::FileNames::messagePath(noon, std::string(300, 'x'), "1");
    EXPECT_EQ(longSubject, "2024/2024-03-01 " + std::string(80, 'x') + " 1.eml");
    auto early = qs::dateFromUnix(-2'208'945'600); // 1900-01-01T12:00:00Z
    EXPECT_EQ(qs::FileNames::messagePath(early, "Old", "1"), "1900/1900-01-01 Old 1.eml");
}

// The year folder follows the machine's local time. The formatters read the zone once, when
// they are made, so each case runs in a fresh copy of this program (gtest's "threadsafe" death
// test style re-executes the binary) that sets TZ before the first path is made.
TEST(FileNamesMessagePath, YearFollowsTheLocalTimeZone) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Case {
        const char* zone;
        std::int64_t unix;
        const char* expected;
    };
    const std::vector<Case> cases = {
        // 2023-12-31T23:30:00Z
        {"Asia/Tokyo", 1'704'065'400, "2024/2024-01-01 Party 9.eml"},
        {"UTC", 1'704'065'400, "2023/2023-12-31 Party 9.eml"},
        // 2024-01-01T03:30:00Z
        {"America/New_York", 1'704'079'800, "2023/2023-12-31 Party 9.eml"},
    };
    for (const auto& c : cases) {
        EXPECT_EXIT(
            {
                ::setenv("TZ", c.zone, 1);
                ::tzset();
                auto path = qs::FileNames::messagePath(qs::dateFromUnix(c.unix), "Party", "9");
                std::cerr << "path: " << path << '\n';
                std::exit(path == c.expected ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "")
            << c.zone << " expects " << c.expected;
    }
}

} // namespace
