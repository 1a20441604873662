#pragma once

#include "mime/MailAddress.h"

#include <optional>
#include <string_view>
#include <vector>

namespace qs::AddressParser {

/// The addresses of an address-list header (From, To, Cc, Reply-To), in order. The text is cut
/// at commas and semicolons outside quotes, angle brackets and comments; each piece goes
/// through `one`, and pieces that give nothing are left out. Never fails.
std::vector<MailAddress> parse(std::string_view text);

/// One address: `Name <addr>` (name unquoted, `\"` unescaped, encoded words decoded),
/// `addr (Name)`, or a bare text with an `@`. A leading group label (`Team:`) is dropped.
/// Nothing for an empty piece or a text without `<...>`, `(...)` or `@`.
std::optional<MailAddress> one(std::string_view text);

} // namespace qs::AddressParser
