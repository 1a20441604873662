#pragma once

#include "imap/IMAPParseError.h"
#include "imap/IMAPResponse.h"
#include "imap/IMAPValue.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// Turns one complete raw response (as framed by `IMAPResponseReader`, final line ending
/// removed) into an `IMAPResponse`. Pure and stateless; safe from any thread.
///
/// The grammar is a forgiving subset of IMAP: anything that can be tokenised is accepted and
/// the meaning is left to whoever reads the values. Only the space (byte 32) separates tokens.
/// Status words and NIL are matched in any letter case; everything else is kept as sent.
/// A literal's bytes are taken as one block; the work is linear in the size of the input.
namespace IMAPResponseParser {

/// Parses one raw response. Throws `IMAPParseError` (and nothing else) with one of the texts
/// "empty response", "bad tagged response: …", "unexpected end", "unexpected character …",
/// "unterminated string", "unterminated list", "bad literal", "bad literal close",
/// "short literal".
IMAPResponse parse(std::string_view raw);

/// A literal that was announced at the end of a line and is held apart from the text of its
/// response: `bytes` belong at position `at` of the response (just past the line feed of the
/// line that announced them), in the coordinates its holder gave the text.
struct HeldLiteral {
    std::size_t at = 0;
    std::string bytes;
    bool operator==(const HeldLiteral&) const = default;
};

/// Parses the response whose bytes are `text` with each of `literals` (in order) inserted at
/// its `at`, where `text` itself begins at `textAt`: the result and the errors are exactly
/// those of `parse` over the whole bytes. Where such a literal is read as a literal value, its
/// bytes are moved into that value, not copied; the others are left as they are. A response
/// that reads across a held literal in any other way (a quoted string or bracketed atom running
/// over it, or it falling into free text) is put together and parsed whole.
IMAPResponse parse(std::string_view text, std::size_t textAt, std::span<HeldLiteral> literals);

/// Reads values from `text` to its end, skipping spaces between them, exactly as the body of
/// an untagged response is read. Throws `IMAPParseError` as `parse` does.
std::vector<IMAPValue> tokens(std::string_view text);

} // namespace IMAPResponseParser

} // namespace qs
