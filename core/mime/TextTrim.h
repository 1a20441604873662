#pragma once

#include <string>
#include <string_view>

namespace qs::TextTrim {

/// `text` without leading and trailing spaces and tabs, including the Unicode space separators
/// (U+00A0, U+2000 to U+200A and the like) as UTF-8. Never reads past `text`.
std::string_view whitespace(std::string_view text);

/// As `whitespace`, and also without line ends (LF, CR, VT, FF, U+0085, U+2028, U+2029).
std::string_view whitespaceAndNewlines(std::string_view text);

/// ASCII letters lower-cased; every other byte kept. Names of MIME tokens, parameters and
/// charsets are ASCII, so this is the lower-casing the message parsers use.
std::string asciiLower(std::string_view text);

/// True when `a` and `b` are equal ignoring ASCII case.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

} // namespace qs::TextTrim
