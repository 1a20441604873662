#include "mime/MailDate.h"
#include "mime/MessageDate.h"

#include <gtest/gtest.h>

#include <ctime>
#include <thread>
#include <unicode/locid.h>
#include <vector>

using namespace qs;

namespace {

// Seconds since 1970 of a UTC calendar time.
int64_t utc(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900, tm.tm_mon = month - 1, tm.tm_mday = day;
    tm.tm_hour = hour, tm.tm_min = minute, tm.tm_sec = second;
    return timegm(&tm);
}

} // namespace

TEST(MailDate, Parse) {
    const std::pair<const char*, std::optional<int64_t>> rows[] = {
        {"Tue, 5 Mar 2024 10:00:00 +0100 (CET)", utc(2024, 3, 5, 9, 0, 0)},
        {"5 Mar 2024 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
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
    const std::string relayed = "from a by b; Tue, 5 Mar 2024 10:00:00 +0000";
    const std::string delivered = "from b by c (x; y); Wed, 6 Mar 2024 09:00:00 +0000 (UTC)";
    const std::pair<std::vector<MIMEHeaderField>, std::optional<int64_t>> rows[] = {
        {{{"Received", delivered}, {"Date", "4 Mar 2024 08:00 +0000"}}, utc(2024, 3, 4, 8, 0, 0)},
        // An unreadable Date: the newest Received.
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
