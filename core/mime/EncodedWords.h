#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace qs::EncodedWords {

/// `text` with its RFC 2047 encoded words (`=?charset?B|Q?payload?=`) decoded to UTF-8.
/// Adjacent words of the same charset are joined as bytes before decoding, so a character
/// split across two words comes out whole; whitespace between two encoded words is dropped.
/// Anything that isn't a well-formed word stays as written. Never fails.
std::string decode(std::string_view text);

/// One decoded word.
struct Word {
    std::string bytes;   ///< the payload with its B or Q encoding undone
    std::string charset; ///< as written, without an RFC 2231 language suffix (`*en`)
    size_t end = 0;      ///< the position in the text just after the closing `?=`

    bool operator==(const Word&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Word& word);

/// The encoded word at the start of `text` (which should begin with `=?`), or nothing if there
/// is none: a missing `?` or `?=`, a payload with a space, or an encoding other than B or Q
/// (either case).
std::optional<Word> decodeWord(std::string_view text);

} // namespace qs::EncodedWords
