#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace qs {

/// A point in time. Records persist it in whole seconds; in memory it keeps what the clock gave.
using Date = std::chrono::system_clock::time_point;

namespace ISODate {

/// "2024-03-01T12:00:00Z": ISO 8601 in whole seconds (rounded down), UTC, suffix Z.
std::string format(Date date);

/// Reads the form `format` writes (also with a fractional part or a numeric offset).
/// Returns nothing for anything else.
std::optional<Date> parse(std::string_view text);

} // namespace ISODate

/// Seconds since the Unix epoch, as a Date.
inline Date dateFromUnix(std::int64_t seconds) {
    return Date(std::chrono::seconds(seconds));
}

/// Whole seconds since the Unix epoch, rounded down.
inline std::int64_t unixSeconds(Date date) {
    return std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
}

} // namespace qs
