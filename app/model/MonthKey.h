#pragma once

#include "support/Date.h"

#include <compare>
#include <iosfwd>
#include <string>

namespace qs {

/// A calendar month in the user's calendar and time zone. Identity and order are the month
/// ordinal `year * 12 + month - 1`.
struct MonthKey {
    int year = 1970;
    /// 1 to 12.
    int month = 1;

    int ordinal() const { return year * 12 + month - 1; }
    static MonthKey fromOrdinal(int ordinal);

    /// The month of `date` in the local time zone; a date the calendar can't place reads as
    /// January 1970.
    static MonthKey of(Date date);

    /// The full month name in the user's locale, a blank and the year in plain digits
    /// ("March 2024").
    std::string title() const;

    friend bool operator==(const MonthKey& a, const MonthKey& b) {
        return a.ordinal() == b.ordinal();
    }
    friend auto operator<=>(const MonthKey& a, const MonthKey& b) {
        return a.ordinal() <=> b.ordinal();
    }
};

/// Answers `MonthKey::of` for many dates at the cost of one calendar lookup per month run:
/// it remembers the bounds of the last month it found, which date-sorted lists hit nearly
/// always.
class MonthKeyFinder {
public:
    MonthKey operator()(Date date);

private:
    int64_t start_ = 1;
    int64_t end_ = 0;
    MonthKey last_;
};

std::ostream& operator<<(std::ostream& out, const MonthKey& key);

} // namespace qs
