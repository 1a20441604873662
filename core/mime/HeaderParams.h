#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace qs::HeaderParams {

/// A structured header value such as `attachment; filename="a b.txt"`, taken apart.
struct Parsed {
    /// The text before the first unquoted semicolon, trimmed ("attachment").
    std::string value;
    /// Lower-case parameter name to decoded value. RFC 2231 forms (`name*`, `name*0`,
    /// `name*1*`, ...) are merged into their base name, decoded to UTF-8 text.
    std::map<std::string, std::string> params;

    bool operator==(const Parsed&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Parsed& parsed);

/// Splits `text` at semicolons outside double quotes (a backslash inside quotes escapes the
/// next character), then reads each further piece as `name=value`; pieces without `=` are
/// skipped, surrounding quotes are dropped, a later parameter wins over an earlier one, and
/// RFC 2231 sections win over a plain parameter of the same name. Never fails.
Parsed parse(std::string_view text);

/// What one RFC 2231 extended value holds.
struct Extended {
    std::string bytes;
    std::optional<std::string> charset;

    bool operator==(const Extended&) const = default;
};

/// Percent-decodes an RFC 2231 value. When `first` is true and the text has exactly two `'`,
/// the part before the first is the charset (if not empty), the language between them is
/// ignored and only the rest is decoded; otherwise all of it is decoded and no charset given.
Extended decode2231Bytes(std::string_view text, bool first);

} // namespace qs::HeaderParams
