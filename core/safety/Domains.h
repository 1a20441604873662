#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The system's one notion of "the same site": the host of a URL and the registrable domain
/// of a host. Pure functions, safe on any thread.
namespace qs::Domains {

/// The host of `url` in lower case, after trimming white space and new lines at both ends.
/// The text must parse as an RFC 3986 URI or relative reference made of URL characters only
/// (no spaces, controls, quotes, angle brackets or non-ASCII); percent escapes in the host are
/// decoded, an IP literal loses its brackets. Nothing when the text doesn't parse or has no
/// (or an empty) host, as with "mailto:" and relative links.
std::optional<std::string> host(std::string_view url);

/// `host(url)` written into `out`, reusing its buffer, for callers that look at many URLs:
/// true with the host in `out`, or false (and `out` unspecified) where `host` gives nothing.
bool host(std::string_view url, std::string& out);

/// The registrable domain of a host name: its last two labels, or its last three when the last
/// two form one of 18 known two-label public suffixes (co.uk, com.au, co.jp, ...). The name is
/// lower-cased and trimmed of "." and blanks first; a name of fewer than three labels comes back
/// as it stands after that trimming. There is deliberately no public-suffix list.
std::string registrable(std::string_view name);

/// True when the two-label `suffix` (such as "co.uk") is one of the known two-label suffixes.
bool isTwoLevelSuffix(std::string_view suffix);

} // namespace qs::Domains
