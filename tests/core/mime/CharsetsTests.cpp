#include "mime/Charsets.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace qs;

namespace {

struct RealBytes {
    const char* label;
    std::string bytes;
    const char* text;
};

// Bytes as each encoder writes them, decoded under the label mail would carry: one row per
// kind of converter, the ISO 2022 repair, the label tables and the alias table.
const std::vector<RealBytes> realBytes{
    {"ISO-8859-1", "\x63\x61\x66\xe9", "café"},
    {"ISO-8859-15", "\xa4\x20\xbd", "€ œ"},
    {"windows-1252", "\x93\x71\x75\x6f\x74\x65\x64\x94\x20\x96\x20\x80", "“quoted” – €"},
    {"Shift_JIS", "\x93\xfa\x96\x7b\x8c\xea\x82\xcc\x83\x65\x83\x4c\x83\x58\x83\x67",
     "日本語のテキスト"},
    {"ISO-2022-JP",
     "\x1b\x24\x42\x46\x7c\x4b\x5c\x38\x6c\x24\x4e\x25\x46\x25\x2d\x25\x39\x25\x48\x1b\x28\x42",
     "日本語のテキスト"},
    // Japanese mailers switch back to ASCII and at once to JIS again where lines were folded.
    {"iso-2022-jp", "\x1b$BF|\x1b(B\x1b$BK\\\x1b(B\x1b(B!", "日本!"},
    {"GB18030", "\xd6\xd0\xce\xc4\x20\xa2\xe3\x20\x81\x34\xd2\x38", "中文 € ᠀"},
    {"windows-874", "\xa1", "ก"},
    {"UTF-7", "+AKM-1 +ZeVnLA-", "£1 日本"},
    // Mislabels mapped by the alias table.
    {"latin1", "caf\xe9", "café"},
    {"cp1252", "\x80", "€"},
    {"x-sjis", "\x93\xfa\x96\x7b", "日本"},
    {"ks_c_5601-1987", "\xc7\xd1\xb1\xb9", "한국"},
    {"gb2312", "\xd6\xd0\x81\x34\xd2\x38", "中᠀"}, // really GB18030, as senders do
    {"gbk", "\xd6\xd0\xce\xc4", "中文"},
    {"unicode-1-1-utf-7", "+AKM-", "£"},
    {"\"UTF8\"", "\xc3\xa9", "é"},
};

} // namespace

TEST(Charsets, DecodesRealBytesOfEachCharset) {
    for (const auto& row : realBytes) {
        SCOPED_TRACE(row.label);
        EXPECT_TRUE(Charsets::encoding(row.label).has_value());
        EXPECT_EQ(Charsets::string(row.bytes, row.label), row.text);
    }
}

TEST(Charsets, EncodingForLabels) {
    struct Row {
        const char* name;
        std::optional<std::string_view> label;
        std::optional<std::string> converter; // nothing: no encoding
    };
    const std::vector<Row> rows{
        {"no label", std::nullopt, std::nullopt},
        {"empty", "", std::nullopt},
        {"only quotes and spaces", " \"\" ", std::nullopt},
        {"unknown", "x-no-such-charset", std::nullopt},
        {"upper case quoted utf8", "\"UTF8\"", "UTF-8"},
        {"us-ascii reads as UTF-8", "US-ASCII", "UTF-8"},
        {"ascii alias", "ascii", "UTF-8"},
        {"padded", "  utf-8 ", "UTF-8"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto encoding = Charsets::encoding(row.label);
        if (row.converter) {
            ASSERT_TRUE(encoding.has_value());
            EXPECT_EQ(encoding->converterName, *row.converter);
        } else {
            EXPECT_EQ(encoding, std::nullopt);
        }
    }
    // Aliases name the same converter as their targets.
    EXPECT_EQ(Charsets::encoding("gb2312"), Charsets::encoding("GB18030"));
    EXPECT_EQ(Charsets::encoding("latin1"), Charsets::encoding("iso-8859-1"));
    EXPECT_EQ(Charsets::encoding("ks_c_5601-1987"), Charsets::encoding("euc-kr"));
}

TEST(Charsets, FallbackChain) {
    struct Row {
        const char* name;
        std::string bytes;
        std::optional<std::string> charset;
        std::string text;
    };
    const std::vector<Row> rows{
        {"us-ascii with 8-bit falls to Windows-1252", "\xe9", "us-ascii", "é"},
        {"unknown label, valid UTF-8", "\xc3\xa9t\xc3\xa9", "x-unknown", "été"},
        {"no label, valid UTF-8", "\xe2\x82\xac", std::nullopt, "€"},
        {"no label, Latin-1 bytes", "caf\xe9", std::nullopt, "café"},
        {"wrong label: bytes invalid in Shift_JIS fall back", "\xc3\xa9\xff", "shift_jis",
         "\xc3\x83\xc2\xa9\xc3\xbf"},
        {"EUC-KR bytes labelled UTF-8 read as Windows-1252", "\xc7\xd1", "utf-8", "Ç\xc3\x91"},
        // Windows-1252's five unassigned bytes map to the C1 controls of the same number (as in
        // the WHATWG table), so the accented letters around them survive.
        {"Windows-1252 unassigned bytes", "caf\xe9 \x81\x8d\x8f\x90\x9d", "utf-8",
         "caf\xc3\xa9 \xc2\x81\xc2\x8d\xc2\x8f\xc2\x90\xc2\x9d"},
        {"empty bytes", "", "iso-8859-1", ""},
        {"NUL kept", std::string("a\0b", 3), "utf-8", std::string("a\0b", 3)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Charsets::string(row.bytes, row.charset), row.text);
    }
}

TEST(Charsets, StrictDecodeRejectsIllFormedInput) {
    auto sjis = Charsets::encoding("shift_jis");
    ASSERT_TRUE(sjis);
    EXPECT_EQ(Charsets::decodeStrict("\x93", *sjis), std::nullopt); // truncated pair
    auto utf8 = Charsets::encoding("utf-8");
    ASSERT_TRUE(utf8);
    EXPECT_EQ(Charsets::decodeStrict("\xc3", *utf8), std::nullopt);
    EXPECT_EQ(Charsets::decodeStrict("\xed\xa0\x80", *utf8), std::nullopt); // a surrogate
    auto utf7 = Charsets::encoding("utf-7");
    ASSERT_TRUE(utf7);
    EXPECT_EQ(Charsets::decodeStrict("+2D3-", *utf7), std::nullopt); // lone high surrogate
}

TEST(Charsets, ConvertersAreSafeOnManyThreads) {
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                for (const auto& row : realBytes) {
                    if (Charsets::string(row.bytes, row.label) != row.text) {
                        ++failures[size_t(t)];
                    }
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}
