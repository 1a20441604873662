#pragma once

#include <string>
#include <string_view>

/// Small text helpers shared by the safety checks. UTF-8 in, UTF-8 out; pure.
namespace qs::TextUtil {

/// `text` without white space and new lines (Unicode White_Space) at either end.
std::string_view trimWhitespace(std::string_view text);

/// Lower case, Unicode-aware; ASCII text takes a fast path.
std::string lower(std::string_view text);

/// ASCII letters lowered in place; other bytes untouched.
void lowerASCIIInPlace(std::string& text);

/// True when `text` begins with `prefix`, comparing ASCII letters without case.
bool startsWithIgnoringCase(std::string_view text, std::string_view prefix);

/// True when `text` holds no byte above 0x7F.
bool isASCII(std::string_view text);

/// Every occurrence of `from` (not empty) in `text` replaced by `to`, left to right.
void replaceAll(std::string& text, std::string_view from, std::string_view to);

} // namespace qs::TextUtil
