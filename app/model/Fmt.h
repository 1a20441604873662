#pragma once

#include "support/Date.h"

#include <QLocale>
#include <QString>

namespace qs::Fmt {

/// Dates for people, in the given locale (the user's by default) and the local time zone.

/// How long ago `date` was, seen from `now`, in whole units rounded down: "just now" under
/// 90 seconds (future dates included), "{m} min ago" under an hour, "{h} h ago" under a day,
/// "{d} d ago" under 60 days, and beyond that the date in the abbreviated style without time
/// ("Mar 1, 2024").
QString ago(Date date, Date now = std::chrono::system_clock::now(),
            const QLocale& locale = QLocale());

/// A message list row's date: today the two-digit hour and minute on the 24-hour clock
/// ("09:05"), yesterday "Yesterday", otherwise the abbreviated month and two-digit day
/// ("Mar 01").
QString rowDate(Date date, Date now = std::chrono::system_clock::now(),
                const QLocale& locale = QLocale());

} // namespace qs::Fmt
