#pragma once

#include "support/Date.h"

#include <optional>
#include <string>
#include <string_view>

namespace qs::MailDate {

/// The date of a `Date` header, or nothing. A trailing comment such as "(UTC)" and doubled
/// spaces are tolerated; the text must otherwise match one of the RFC 5322 forms in English
/// (day name optional, seconds optional, two-digit years, numeric or named zone) in full, or,
/// failing that, one of its obsolete forms (RFC5322Fields). A date without a zone reads as
/// GMT. Thread-safe.
std::optional<Date> parse(std::string_view text);

/// "Tue, 5 Mar 2024 10:00:00 +0100" in the process's default time zone.
std::string rfc5322(Date date);

} // namespace qs::MailDate
