#pragma once

#include "search/MessageRecord.h"
#include "support/Date.h"

#include <array>
#include <iosfwd>
#include <optional>
#include <string_view>

namespace qs {

/// A fixed view across all accounts, in the order of its sidebar rows. The raw value of each
/// case is its name.
enum class SmartFilter { recent, attachments, trackers, suspicious, large };

namespace SmartFilters {

/// Every case in sidebar order.
inline constexpr std::array<SmartFilter, 5> all{SmartFilter::recent, SmartFilter::attachments,
                                                SmartFilter::trackers, SmartFilter::suspicious,
                                                SmartFilter::large};

/// "recent" takes mail strictly newer than this many seconds before now: 30 days exactly, no
/// calendar arithmetic.
inline constexpr int64_t recentSeconds = 2'592'000;
/// "large" takes files strictly over this many bytes (decimal megabytes, deliberately).
inline constexpr int64_t largeBytes = 5'000'000;

std::string_view rawValue(SmartFilter filter);
std::optional<SmartFilter> named(std::string_view raw);
/// The sidebar row's title, e.g. "Last 30 Days".
std::string_view title(SmartFilter filter);
/// The row's symbol name, e.g. "clock".
std::string_view symbol(SmartFilter filter);
/// Whether `record` belongs to `filter`, `now` being the moment the recent window ends.
bool contains(SmartFilter filter, const MessageRecord& record,
              Date now = std::chrono::system_clock::now());

} // namespace SmartFilters

std::ostream& operator<<(std::ostream& out, SmartFilter filter);

} // namespace qs
