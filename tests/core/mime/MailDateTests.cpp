#include "mime/MailDate.h"
#include "mime/MessageDate.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <unicode/locid.h>
#include <vector>

using namespace qs;

namespace {

// Seconds since 1970 of a UTC calendar time, computed without the C library's time zone.
int64_t utc(int year, int month, int day, int hour, int minute, int second) {
    // Days from civil (proleptic Gregorian).
    year -= month <= 2;
    int64_t era = (year >= 0 ? year : year - 399) / 400;
    int64_t yoe = year - era * 400;
    int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    int64_t days = era * 146097 + doe - 719468;
    return days * 86400 + hour * 3600 + minute * 60 + second;
}

} // namespace

TEST(MailDate, Parse) {
    struct Row {
        const char* name;
        const char* input;
        std::optional<int64_t> seconds;
    };
    const std::vector<Row> rows{
        {"first form with comment", "Tue, 5 Mar 2024 10:00:00 +0100 (CET)",
         utc(2024, 3, 5, 9, 0, 0)},
        {"second form", "5 Mar 2024 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"fifth form, two-digit year", "Tue, 5 Mar 24 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"two-digit year 49 is 2049", "5 Mar 49 10:00:00 +0000", utc(2049, 3, 5, 10, 0, 0)},
        {"two-digit year 50 is 1950", "5 Mar 50 10:00:00 +0000", utc(1950, 3, 5, 10, 0, 0)},
        {"sixth form after double space", "Tue,  5 Mar 2024 10:00:00 GMT",
         utc(2024, 3, 5, 10, 0, 0)},
        {"named US zone", "Tue, 5 Mar 2024 10:00:00 EST", utc(2024, 3, 5, 15, 0, 0)},
        {"surrounding blanks and line end", "  Tue, 05 Mar 2024 23:59:59 +0530\r\n",
         utc(2024, 3, 5, 18, 29, 59)},
        {"wrong weekday still reads the date", "Mon, 5 Mar 2024 10:00:00 +0000",
         utc(2024, 3, 5, 10, 0, 0)},
        {"three-digit year", "Tue, 5 Mar 124 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"no zone reads as GMT", "Tue, 5 Mar 2024 10:00:00", utc(2024, 3, 5, 10, 0, 0)},
        {"no blank after the comma", "Thu,29 Apr 2012 10:00:00 +0200", utc(2012, 4, 29, 8, 0, 0)},
        {"military zone reads as GMT", "5 Mar 2024 10:00:00 Q", utc(2024, 3, 5, 10, 0, 0)},
        {"comments and blanks inside the time", "Fri, 21 Nov 1997 09(comment):   55  :  06 -0600",
         utc(1997, 11, 21, 15, 55, 6)},
        {"lower-case and full names", "tuesday, 5 march 2024 10:00 -0000",
         utc(2024, 3, 5, 10, 0, 0)},
        {"leap second", "30 Jun 2012 23:59:60 +0000", utc(2012, 6, 30, 23, 59, 59)},
        {"day beyond its month", "30 Feb 2024 10:00:00", std::nullopt},
        {"no time", "5 Mar 2024 +0000", std::nullopt},
        {"ISO date", "2024-03-05", std::nullopt},
        {"beyond what the clock holds", "Tue, 5 Mar 3609 10:00:00 +0000", std::nullopt},
        {"before what the clock holds", "Tue, 5 Mar 1500 10:00:00 +0000", std::nullopt},
        {"trailing garbage", "Tue, 5 Mar 2024 10:00:00 +0000 xyz", std::nullopt},
        {"only a comment", "(no date)", std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto date = MailDate::parse(row.input);
        if (row.seconds) {
            ASSERT_TRUE(date.has_value());
            EXPECT_EQ(unixSeconds(*date), *row.seconds);
        } else {
            EXPECT_EQ(date, std::nullopt);
        }
    }
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

TEST(MailDate, RFC5322RoundTrips) {
    Date date = dateFromUnix(utc(2024, 3, 5, 10, 0, 7));
    std::string text = MailDate::rfc5322(date);
    EXPECT_NE(text.find("2024"), std::string::npos) << text;
    auto back = MailDate::parse(text);
    ASSERT_TRUE(back.has_value()) << text;
    EXPECT_EQ(*back, date);
}

TEST(MessageDate, DateFieldThenNewestReceived) {
    struct Row {
        const char* name;
        std::vector<MIMEHeaderField> fields;
        std::optional<int64_t> seconds;
    };
    const std::string relayed = "from a by b; Tue, 5 Mar 2024 10:00:00 +0000";
    const std::string delivered = "from b by c (x; y); Wed, 6 Mar 2024 09:00:00 +0000 (UTC)";
    const std::vector<Row> rows{
        {"Date field",
         {{"Received", delivered}, {"Date", "4 Mar 2024 08:00 +0000"}},
         utc(2024, 3, 4, 8, 0, 0)},
        {"unreadable Date: the newest Received",
         {{"Received", relayed}, {"Received", delivered}, {"Date", "someday"}},
         utc(2024, 3, 6, 9, 0, 0)},
        {"no Date: Received without a date passed over",
         {{"Received", "from a by b"}, {"Received", relayed}},
         utc(2024, 3, 5, 10, 0, 0)},
        {"no dates at all", {{"Subject", "x"}}, std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto date = MessageDate::of(MIMEHeaders(row.fields));
        ASSERT_EQ(date.has_value(), row.seconds.has_value());
        if (date) {
            EXPECT_EQ(unixSeconds(*date), *row.seconds);
        }
    }
}
