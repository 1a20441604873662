#pragma once

#include <string>
#include <string_view>

namespace qs::IMAPQuote {

/// True when `text` can't go out as a quoted string and needs a literal: some UTF-8 byte is a
/// line feed, a carriage return or above 127. NUL and other control bytes are no reason.
bool needsLiteral(std::string_view text);

/// `text` as an IMAP quoted string: backslashes doubled, double quotes escaped, the whole in
/// double quotes. Only meaningful when needsLiteral is false.
std::string quoted(std::string_view text);

} // namespace qs::IMAPQuote
