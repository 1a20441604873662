#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qs::RFC5322Fields {

/// A date in any form RFC 5322 reads, its obsolete ones included, as seconds since 1970:
/// "[day-name,] day month year hh:mm[:ss] [zone]" with comments anywhere, blanks optional after
/// the comma and around colons, names in any case, two-digit years as 1950-2049, three-digit
/// ones from 1900, and a missing, military or unknown zone as GMT. Nothing for anything else.
/// The formats of `MailDate::parse` come first; this reads what they refuse.
std::optional<int64_t> seconds(std::string_view text);

} // namespace qs::RFC5322Fields
