#pragma once

#include "imap/IMAPParseError.h"
#include "imap/IMAPResponse.h"
#include "imap/IMAPValue.h"

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

/// Reads values from `text` to its end, skipping spaces between them, exactly as the body of
/// an untagged response is read. Throws `IMAPParseError` as `parse` does.
std::vector<IMAPValue> tokens(std::string_view text);

} // namespace IMAPResponseParser

} // namespace qs
