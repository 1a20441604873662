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

/// True when `text` is non-empty, well-formed UTF-8 and every character is a letter.
bool isAllLetters(std::string_view text);

/// True when `text` holds no byte above 0x7F.
bool isASCII(std::string_view text);

/// Every occurrence of `from` (not empty) in `text` replaced by `to`, left to right.
void replaceAll(std::string& text, std::string_view from, std::string_view to);

/// The first offset at or after `from` whose byte is (or, for `findFirstNotOf`, isn't) one of
/// the few bytes of `set`, or npos. Plain loops: the standard library's versions call memchr
/// once per byte of the text, which is slow for the short sets used here.
inline bool isOneOf(char c, std::string_view set) {
    for (char s : set) {
        if (c == s) {
            return true;
        }
    }
    return false;
}

inline size_t findFirstOf(std::string_view text, std::string_view set, size_t from = 0) {
    for (size_t i = from; i < text.size(); ++i) {
        if (isOneOf(text[i], set)) {
            return i;
        }
    }
    return std::string_view::npos;
}

inline size_t findFirstNotOf(std::string_view text, std::string_view set, size_t from = 0) {
    for (size_t i = from; i < text.size(); ++i) {
        if (!isOneOf(text[i], set)) {
            return i;
        }
    }
    return std::string_view::npos;
}

} // namespace qs::TextUtil
