#include "vault/FileNames.h"

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

TEST(FileNamesSanitize, Table) {
    // One character of 8 bytes, and one of 18.
    const std::string emoji = "\U0001F44D\U0001F3FD";
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    struct Case {
        const char* name;
        std::string input;
        size_t max;
        size_t maxBytes;
        std::string expected;
    };
    // clang-format off
    const std::vector<Case> cases = {
        {"plain text is kept", "Quarterly report", 80, 150, "Quarterly report"},
        {"all nine unsafe characters", R"(a/b\c:d*e?f"g<h>i|j)", 80, 150, "a b c d e f g h i j"},
        {"runs of spaces fold", "  a    b  ", 80, 150, "a b"},
        {"every line break kind", "a\nb\vc\fd\re\u0085f\u2028g\u2029h", 80, 150, "a b c d e f g h"},
        {"tab, controls and DEL", "a\tb\x01" "c\x1f" "d\x7f" "e", 80, 150, "a b c d e"},
        {"NUL is unsafe too", std::string("a\0b", 3), 80, 150, "a b"},
        {"unicode blanks trimmed, kept inside", "\u00a0\u3000x\u00a0y\u2003", 80, 150, "x\u00a0y"},
        {"dots alone become empty", "....", 80, 150, ""},
        {"dot, blank, letter ends as the letter", ". x", 80, 150, "x"},
        {"inner and trailing dots stay", "a.b.", 80, 150, "a.b."},
        {"cut by characters, then trimmed", "abc def", 4, 150, "abc"},
        {"cut by bytes, an exact fit kept", "日本語テキスト", 80, 9, "日本語"},
        {"combining sequences stay whole", repeat("e\u0301", 5), 80, 7, repeat("e\u0301", 2)},
        {"ill-formed UTF-8 becomes U+FFFD", "a\xff" "b", 80, 150, "a\ufffd" "b"},
        {"200 emoji: characters, then bytes", repeat(emoji, 200), 80, 150, repeat(emoji, 18)},
        {"a byte limit inside a character", repeat(family, 3), 80, 41, repeat(family, 2)},
    };
    // clang-format on
    for (const auto& c : cases) {
        EXPECT_EQ(qs::FileNames::sanitize(c.input, c.max, c.maxBytes), c.expected) << c.name;
    }
}

TEST(FileNamesFolderDirectory, Table) {
    struct Case {
        qs::IMAPMailbox mailbox;
        std::string expected;
    };
    // clang-format off
    const std::vector<Case> cases = {
        {{"&AMQ-rger", "Ärger", "/", {}}, "Ärger"}, // the display name, not the wire name
        {{"Work/Projects/2024", "Work/Projects/2024", "/", {}}, "Work - Projects - 2024"},
        {{"INBOX.Sub.Deep", "INBOX.Sub.Deep", ".", {}}, "INBOX - Sub - Deep"},
        {{"a/b", "a/b", std::nullopt, {}}, "a b"}, // no delimiter: a slash is only unsafe
        {{"a.b", "a.b", "", {}}, "a.b"},
        {{"///", "///", std::nullopt, {}}, "Folder"},
        {{"..", "..", "/", {}}, "Folder"},
    };
    // clang-format on
    for (const auto& c : cases) {
        EXPECT_EQ(qs::FileNames::folderDirectory(c.mailbox), c.expected) << c.mailbox;
    }
}

// Noon UTC is the same day from UTC-11 to UTC+11.
TEST(FileNamesMessagePath, JoinsYearDaySubjectAndId) {
    auto noon = qs::dateFromUnix(1'709'294'400); // 2024-03-01T12:00:00Z
    EXPECT_EQ(qs::FileNames::messagePath(noon, "Lunch: Friday?", "42"),
              "2024/2024-03-01 Lunch Friday 42.eml");
    EXPECT_EQ(qs::FileNames::messagePath(noon, "   ", "7"), "2024/2024-03-01 (no subject) 7.eml");
    auto longSubject = qs::FileNames::messagePath(noon, std::string(300, 'x'), "1");
    EXPECT_EQ(longSubject, "2024/2024-03-01 " + std::string(80, 'x') + " 1.eml");
    auto early = qs::dateFromUnix(-2'208'945'600); // 1900-01-01T12:00:00Z
    EXPECT_EQ(qs::FileNames::messagePath(early, "Old", "1"), "1900/1900-01-01 Old 1.eml");
}

// The formatters read the zone once, so each case runs in a fresh child that sets TZ first.
TEST(FileNamesMessagePath, YearFollowsTheLocalTimeZone) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Case {
        const char* zone;
        std::int64_t unix;
        const char* expected;
    };
    const std::vector<Case> cases = {
        {"Asia/Tokyo", 1'704'065'400, "2024/2024-01-01 Party 9.eml"},       // 2023-12-31T23:30:00Z
        {"America/New_York", 1'704'079'800, "2023/2023-12-31 Party 9.eml"}, // 03:30Z, 1 Jan
    };
    for (const auto& c : cases) {
        EXPECT_EXIT(
            {
                ::setenv("TZ", c.zone, 1);
                ::tzset();
                auto path = qs::FileNames::messagePath(qs::dateFromUnix(c.unix), "Party", "9");
                std::exit(path == c.expected ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "")
            << c.zone << " expects " << c.expected;
    }
}

} // namespace
