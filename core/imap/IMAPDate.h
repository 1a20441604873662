#pragma once

#include "support/Date.h"

#include <optional>
#include <string>
#include <string_view>

namespace qs::IMAPDate {

/// An INTERNALDATE such as "17-Jul-1996 02:44:25 -0700" (spaces and tabs around it ignored),
/// read with the format "d-MMM-yyyy HH:mm:ss Z" in the en_US_POSIX locale, strictly and to the
/// end of the text. Nothing when it doesn't read.
std::optional<Date> parse(std::string_view text);

/// The date of a SEARCH criterion such as BEFORE, "d-MMM-yyyy" in the device's time zone:
/// "5-Mar-2024".
std::string searchString(Date date);

} // namespace qs::IMAPDate
