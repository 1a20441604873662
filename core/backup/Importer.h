#pragma once

// Bringing mail that is already on disk into the vault: mbox archives are split into messages,
// anything that reads as mail is filed below "Imported/{collection}", named by a hash of its
// bytes so that importing the same message again writes nothing.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qs::Importer {

/// The messages of an mbox file, each ending in exactly one CR LF, with mboxrd escaping
/// (">From " at a line start) undone once.
///
/// A line that starts with "From " separates messages only at the start of the file or after
/// an empty line (empty, or a lone CR), so an unescaped "From " inside a text stays put. Bytes
/// before the first separator are dropped; no separator at all gives no message. Never fails.
std::vector<std::string> splitMbox(std::string_view data);

/// The low 32 bits of the 64-bit FNV-1a hash of `data`, as 8 lower-case hexadecimal digits.
std::string fingerprint(std::string_view data);

} // namespace qs::Importer
