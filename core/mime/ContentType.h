#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace qs {

/// A part's media type: `type` and `subtype` in lower case, and the parameters by lower-case
/// name (RFC 2231 sections and charsets already merged and decoded).
struct ContentType {
    std::string type;
    std::string subtype;
    std::map<std::string, std::string> params;

    /// `type/subtype`.
    std::string mimeType() const { return type + "/" + subtype; }

    /// The `charset` parameter, if present.
    std::optional<std::string> charset() const;

    /// The value of a parameter by lower-case name, if present.
    const std::string* param(std::string_view name) const;

    bool isMultipart() const { return type == "multipart"; }

    /// The shared `text/plain` without parameters, the type of a part that names none.
    static const ContentType& defaultText();

    /// The shared `message/rfc822`, the type of a digest's parts that name none.
    static const ContentType& defaultMessage();

    /// A Content-Type header value read leniently: the value lower-cased and split at `/`, both
    /// pieces trimmed. Nothing unless that gives exactly two pieces and a non-empty type; the
    /// caller then uses its default (and the header's parameters are dropped with it).
    static std::optional<ContentType> parse(std::string_view headerValue);

    bool operator==(const ContentType&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ContentType& type);

} // namespace qs
