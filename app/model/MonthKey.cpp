#include "model/MonthKey.h"

#include <QDate>
#include <QLocale>
#include <ctime>
#include <ostream>

namespace qs {

namespace {

// Seconds since 1970 of local midnight on the first of a month; mktime normalises a month
// of 13 into the next year.
int64_t monthStart(int year, int month) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = 1;
    parts.tm_isdst = -1;
    return static_cast<int64_t>(std::mktime(&parts));
}

} // namespace

MonthKey MonthKey::fromOrdinal(int ordinal) {
    int year = ordinal >= 0 ? ordinal / 12 : (ordinal - 11) / 12;
    return {year, ordinal - year * 12 + 1};
}

MonthKey MonthKey::of(Date date) {
    std::time_t seconds = static_cast<std::time_t>(unixSeconds(date));
    std::tm parts{};
    if (::localtime_r(&seconds, &parts) == nullptr) {
        return {};
    }
    return {parts.tm_year + 1900, parts.tm_mon + 1};
}

std::string MonthKey::title() const {
    return (QLocale().standaloneMonthName(month, QLocale::LongFormat) + u' ' +
            QString::number(year))
        .toStdString();
}

MonthKey MonthKeyFinder::operator()(Date date) {
    int64_t seconds = unixSeconds(date);
    if (seconds >= start_ && seconds < end_) {
        return last_;
    }
    last_ = MonthKey::of(date);
    start_ = monthStart(last_.year, last_.month);
    end_ = monthStart(last_.year, last_.month + 1);
    if (start_ == -1 || end_ == -1) {
        // Out of the calendar's range: no caching, every call asks again.
        start_ = 1;
        end_ = 0;
    }
    return last_;
}

std::ostream& operator<<(std::ostream& out, const MonthKey& key) {
    return out << key.year << "-" << key.month;
}

} // namespace qs
