#include "model/Fmt.h"
#include "model/PlatformWords.h"

#include <QDateTime>
#include <gtest/gtest.h>

namespace {

qs::Date localDate(int year, int month, int day, int hour, int minute) {
    QDateTime when(QDate(year, month, day), QTime(hour, minute), Qt::LocalTime);
    return qs::Date(std::chrono::milliseconds(when.toMSecsSinceEpoch()));
}

const QLocale english(QLocale::English, QLocale::UnitedStates);

TEST(Fmt, AgoStepsThroughItsUnitsRoundingDown) {
    auto now = localDate(2024, 3, 10, 15, 0);
    struct Case {
        std::int64_t secondsAgo;
        const char* expected;
    };
    const std::vector<Case> cases = {
        {-3'600, "just now"}, {0, "just now"},       {89, "just now"},
        {90, "1 min ago"},    {3'599, "59 min ago"}, {3'600, "1 h ago"},
        {86'399, "23 h ago"}, {86'400, "1 d ago"},   {5'183'999, "59 d ago"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(
            qs::Fmt::ago(now - std::chrono::seconds(c.secondsAgo), now, english).toStdString(),
            c.expected)
            << c.secondsAgo << " s";
    }
    EXPECT_EQ(qs::Fmt::ago(localDate(2023, 12, 1, 9, 30), now, english).toStdString(),
              "Dec 1, 2023");
}

TEST(Fmt, RowDateSaysTimeTodayYesterdayOrDay) {
    auto now = localDate(2024, 3, 10, 15, 0);
    struct Case {
        qs::Date date;
        const char* expected;
    };
    const std::vector<Case> cases = {
        {localDate(2024, 3, 10, 9, 5), "09:05"},      {localDate(2024, 3, 10, 23, 59), "23:59"},
        {localDate(2024, 3, 9, 23, 59), "Yesterday"}, {localDate(2024, 3, 9, 0, 0), "Yesterday"},
        {localDate(2024, 3, 8, 23, 59), "Mar 08"},    {localDate(2023, 3, 10, 12, 0), "Mar 10"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(qs::Fmt::rowDate(c.date, now, english).toStdString(), c.expected);
}

TEST(PlatformWords, ReplacesWholeWordsOnly) {
    const std::pair<const char16_t*, const char16_t*> rows[] = {
        {u"Show Vault in Finder", u"Show Vault in File Manager"},
        {u"It’s kept in your Mac’s Keychain and goes nowhere else.",
         u"It’s kept in your computer’s keyring and goes nowhere else."},
        {u"Click to preview with Quick Look", u"Click to preview with Preview"},
        {u"nothing leaves your Mac except", u"nothing leaves your computer except"},
        {u"Machine and iMac and Macs stay", u"Machine and iMac and Macs stay"},
        {u"Mac", u"computer"},
    };
    for (const auto& [elsewhere, here] : rows)
        EXPECT_EQ(qs::PlatformWords::adapt(QStringView(elsewhere)), QString::fromUtf16(here));
}

} // namespace
