#pragma once

#include <string>
#include <string_view>

namespace qs::PercentDecode {

/// The bytes of `text` with every `%` followed by two hexadecimal digits (either case) replaced
/// by the byte they name. Anything else, a `%` that starts no valid escape included, is copied
/// as it is. Never fails.
std::string bytes(std::string_view text);

} // namespace qs::PercentDecode
