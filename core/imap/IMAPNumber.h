#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qs::IMAPNumber {

/// Whole decimal text as an unsigned 32-bit number: digits with an optional leading "+",
/// nothing else, no overflow. Nothing otherwise.
std::optional<uint32_t> uint32(std::string_view text);

/// Whole decimal text as a signed 64-bit number: digits with an optional sign.
std::optional<int64_t> int64(std::string_view text);

} // namespace qs::IMAPNumber
