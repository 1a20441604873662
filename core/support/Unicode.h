#pragma once

#include <string>
#include <string_view>
#include <unicode/brkiter.h>
#include <unicode/unistr.h>
#include <vector>

namespace qs::Unicode {

/// UTF-8 bytes as an ICU string; ill-formed sequences become U+FFFD.
icu::UnicodeString fromUTF8(std::string_view utf8);

/// An ICU string as UTF-8.
std::string toUTF8(const icu::UnicodeString& text);

/// True when `bytes` is well-formed UTF-8.
bool isValidUTF8(std::string_view bytes);

/// The user-perceived characters (extended grapheme clusters) of UTF-8 text, as slices of it.
/// The text must be valid UTF-8 (ill-formed bytes each count as one character).
std::vector<std::string_view> graphemes(std::string_view utf8);

/// This thread's character (grapheme cluster) break iterator, made once per thread, since
/// ICU's iterators can't be shared. Callers set their own text on it.
icu::BreakIterator& characterIterator();

/// Number of grapheme clusters in UTF-8 text.
size_t graphemeCount(std::string_view utf8);

/// Case- and diacritic-insensitive form: NFD, nonspacing marks dropped, full case folding.
std::string fold(std::string_view utf8);

} // namespace qs::Unicode
