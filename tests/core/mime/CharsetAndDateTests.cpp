#include "mime/Charsets.h"
#include "mime/MailDate.h"
#include "mime/MessageDate.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <thread>
#include <unicode/locid.h>
#include <vector>

using namespace qs;

namespace {

int64_t utc(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900, tm.tm_mon = month - 1, tm.tm_mday = day;
    tm.tm_hour = hour, tm.tm_min = minute, tm.tm_sec = second;
    return timegm(&tm);
}

struct RealBytes {
    const char* label;
    std::string bytes;
    const char* text;
};

const std::vector<RealBytes> realBytes{
    {"ISO-8859-15", "\xa4\x20\xbd", "€ œ"},
    {"windows-1252", "\x93\x71\x75\x6f\x74\x65\x64\x94\x20\x96\x20\x80", "“quoted” – €"},
    {"Shift_JIS", "\x93\xfa\x96\x7b\x8c\xea\x82\xcc", "日本語の"},
    {"ISO-2022-JP", "\x1b\x24\x42\x46\x7c\x4b\x5c\x38\x6c\x1b\x28\x42", "日本語"},
    // Japanese mailers switch back to ASCII and at once to JIS again where lines were folded.
    {"iso-2022-jp", "\x1b$BF|\x1b(B\x1b$BK\\\x1b(B\x1b(B!", "日本!"},
    {"GB18030", "\xd6\xd0\xce\xc4\x20\xa2\xe3\x20\x81\x34\xd2\x38", "中文 € ᠀"},
    {"windows-874", "\xa1", "ก"},
    {"UTF-7", "+AKM-1 +ZeVnLA-", "£1 日本"},
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

TEST(Charsets, DecodesRealBytesAndFindsConvertersForLabels) {
    for (const auto& row : realBytes) {
        SCOPED_TRACE(row.label);
        EXPECT_TRUE(Charsets::encoding(row.label).has_value());
        EXPECT_EQ(Charsets::string(row.bytes, row.label), row.text);
    }
    const std::pair<std::optional<std::string_view>, std::optional<std::string>> rows[] = {
        {std::nullopt, std::nullopt}, {" \"\" ", std::nullopt}, {"x-no-such-charset", std::nullopt},
        {"US-ASCII", "UTF-8"},        {"ascii", "UTF-8"},       {"  utf-8 ", "UTF-8"},
    };
    for (const auto& [label, converter] : rows) {
        SCOPED_TRACE(label.value_or("(none)"));
        auto encoding = Charsets::encoding(label);
        EXPECT_EQ(encoding ? std::optional(encoding->converterName) : std::nullopt, converter);
    }
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
        {"no label, Latin-1 bytes", "caf\xe9", std::nullopt, "café"},
        {"wrong label: bytes invalid in Shift_JIS fall back", "\xc3\xa9\xff", "shift_jis",
         "\xc3\x83\xc2\xa9\xc3\xbf"},
        {"EUC-KR bytes labelled UTF-8 read as Windows-1252", "\xc7\xd1", "utf-8", "Ç\xc3\x91"},
        // Windows-1252's five unassigned bytes map to the C1 controls of the same number (as in
        // the WHATWG table), so the accented letters around them survive.
        {"Windows-1252 unassigned bytes", "caf\xe9 \x81\x8d\x8f\x90\x9d", "utf-8",
         "caf\xc3\xa9 \xc2\x81\xc2\x8d\xc2\x8f\xc2\x90\xc2\x9d"},
        {"NUL kept", std::string("a\0b", 3), "utf-8", std::string("a\0b", 3)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Charsets::string(row.bytes, row.charset), row.text);
    }
}

TEST(Charsets, StrictDecodeRejectsIllFormedInput) {
    const std::pair<const char*, const char*> rows[] = {
        {"shift_jis", "\x93"},     // truncated pair
        {"utf-8", "\xc3"},         // truncated sequence
        {"utf-8", "\xed\xa0\x80"}, // a surrogate
        {"utf-7", "+2D3-"},        // lone high surrogate
    };
    for (const auto& [label, bytes] : rows) {
        SCOPED_TRACE(label);
        auto encoding = Charsets::encoding(label);
        ASSERT_TRUE(encoding);
        EXPECT_EQ(Charsets::decodeStrict(bytes, *encoding), std::nullopt);
    }
}

// Converters and date formatters are kept per thread; none may leak into another.
TEST(Charsets, ConvertersAndDatesAreSafeOnManyThreads) {
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                for (const auto& row : realBytes) {
                    failures[size_t(t)] += Charsets::string(row.bytes, row.label) != row.text;
                }
                auto a = MailDate::parse("Tue, 5 Mar 2024 10:00:00 +0100");
                auto b = MailDate::parse("5 Mar 2024 10:00 -0500");
                failures[size_t(t)] +=
                    !a || unixSeconds(*a) != 1709629200 || !b || unixSeconds(*b) != 1709650800;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}

TEST(MailDate, Parse) {
    const std::pair<const char*, std::optional<int64_t>> rows[] = {
        {"Tue, 5 Mar 2024 10:00:00 +0100 (CET)", utc(2024, 3, 5, 9, 0, 0)},
        {"Tue, 5 Mar 24 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"5 Mar 49 10:00:00 +0000", utc(2049, 3, 5, 10, 0, 0)},
        {"5 Mar 50 10:00:00 +0000", utc(1950, 3, 5, 10, 0, 0)},
        {"Tue,  5 Mar 2024 10:00:00 GMT", utc(2024, 3, 5, 10, 0, 0)},
        {"Tue, 5 Mar 2024 10:00:00 EST", utc(2024, 3, 5, 15, 0, 0)},
        {"  Tue, 05 Mar 2024 23:59:59 +0530\r\n", utc(2024, 3, 5, 18, 29, 59)},
        {"Mon, 5 Mar 2024 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"Tue, 5 Mar 124 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"Tue, 5 Mar 2024 10:00:00", utc(2024, 3, 5, 10, 0, 0)},
        {"Thu,29 Apr 2012 10:00:00 +0200", utc(2012, 4, 29, 8, 0, 0)},
        {"5 Mar 2024 10:00:00 Q", utc(2024, 3, 5, 10, 0, 0)},
        {"Fri, 21 Nov 1997 09(comment):   55  :  06 -0600", utc(1997, 11, 21, 15, 55, 6)},
        {"tuesday, 5 march 2024 10:00 -0000", utc(2024, 3, 5, 10, 0, 0)},
        {"30 Jun 2012 23:59:60 +0000", utc(2012, 6, 30, 23, 59, 59)},
        {"30 Feb 2024 10:00:00", std::nullopt},
        {"5 Mar 2024 +0000", std::nullopt},
        {"2024-03-05", std::nullopt},
        {"Tue, 5 Mar 3609 10:00:00 +0000", std::nullopt},
        {"Tue, 5 Mar 1500 10:00:00 +0000", std::nullopt},
        {"Tue, 5 Mar 2024 10:00:00 +0000 xyz", std::nullopt},
        {"(no date)", std::nullopt},
    };
    for (const auto& [input, seconds] : rows) {
        auto date = MailDate::parse(input);
        EXPECT_EQ(date ? std::optional(unixSeconds(*date)) : std::nullopt, seconds) << input;
    }
    Date date = dateFromUnix(utc(2024, 3, 5, 10, 0, 7));
    EXPECT_EQ(MailDate::parse(MailDate::rfc5322(date)), date) << MailDate::rfc5322(date);
}

TEST(MailDate, EnglishMonthsReadUnderAnotherLocale) {
    icu::Locale saved = icu::Locale::getDefault();
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale("de_DE"), status);
    // Parsed on a fresh thread, whose formatters are made under the German default.
    std::optional<Date> date;
    std::thread([&] { date = MailDate::parse("Tue, 5 Mar 2024 10:00:00 +0000"); }).join();
    icu::Locale::setDefault(saved, status);
    ASSERT_TRUE(date.has_value());
    EXPECT_EQ(unixSeconds(*date), utc(2024, 3, 5, 10, 0, 0));
}

TEST(MessageDate, DateFieldThenNewestReceived) {
    const std::string relayed = "from a by b; Tue, 5 Mar 2024 10:00:00 +0000";
    const std::string delivered = "from b by c (x; y); Wed, 6 Mar 2024 09:00:00 +0000 (UTC)";
    const std::pair<std::vector<MIMEHeaderField>, std::optional<int64_t>> rows[] = {
        {{{"Received", delivered}, {"Date", "4 Mar 2024 08:00 +0000"}}, utc(2024, 3, 4, 8, 0, 0)},
        {{{"Received", relayed}, {"Received", delivered}, {"Date", "someday"}},
         utc(2024, 3, 6, 9, 0, 0)},
        {{{"Received", "from a by b"}, {"Received", relayed}}, utc(2024, 3, 5, 10, 0, 0)},
        {{{"Subject", "x"}}, std::nullopt},
    };
    for (const auto& [fields, seconds] : rows) {
        auto date = MessageDate::of(MIMEHeaders(fields));
        EXPECT_EQ(date ? std::optional(unixSeconds(*date)) : std::nullopt, seconds)
            << ::testing::PrintToString(fields);
    }
}
