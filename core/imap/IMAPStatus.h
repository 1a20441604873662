#pragma once

#include <optional>
#include <ostream>
#include <string_view>

namespace qs {

/// The status word of a tagged or untagged status response. The raw values are the upper-case
/// words on the wire, in this order.
enum class IMAPStatus { ok, no, bad, preauth, bye };

/// The word on the wire: "OK", "NO", "BAD", "PREAUTH", "BYE".
std::string_view rawValue(IMAPStatus status);

/// The status whose raw value is exactly `word` (already upper-cased by the caller); nothing for
/// any other word.
std::optional<IMAPStatus> imapStatus(std::string_view word);

std::ostream& operator<<(std::ostream& out, IMAPStatus status);

} // namespace qs
