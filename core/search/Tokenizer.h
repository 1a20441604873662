#pragma once

#include <cstddef>
#include <string_view>
#include <utility>

namespace qs::Tokenizer {

/// A word shorter than this many characters is dropped: one-letter words would match nearly
/// every message as prefixes and say nothing.
inline constexpr size_t minimumLength = 2;

/// A longer word is cut to this many characters, which keeps runs of ideographs, base64 debris
/// and long identifiers from bloating the index while a prefix query still finds them.
inline constexpr size_t maximumLength = 40;

using Emit = void (*)(void* context, std::string_view token);

/// Calls `emit` with every token of `text`, in text order, duplicates included. The text is
/// folded (case and diacritics, no locale) and walked by extended grapheme clusters; a cluster
/// whose first scalar is Alphabetic or has a numeric type belongs to a word, anything else
/// ends one. Words are kept from `minimumLength` characters and cut at `maximumLength`.
/// Ill-formed UTF-8 reads as U+FFFD, which is no word character. The token passed to `emit`
/// is valid only during the call.
void scan(std::string_view text, Emit emit, void* context);

/// `scan` with any callable taking a std::string_view.
template <class F>
void forEachToken(std::string_view text, F&& function) {
    scan(
        text, [](void* context, std::string_view token) { (*static_cast<F*>(context))(token); },
        const_cast<void*>(static_cast<const void*>(&function)));
}

} // namespace qs::Tokenizer
