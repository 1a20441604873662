#pragma once

// Bringing mail that is already on disk into the vault: mbox archives are split into messages,
// anything that reads as mail is filed below "Imported/{collection}", named by a hash of its
// bytes so that importing the same message again writes nothing.

#include "vault/ArchiveLayout.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qs::Importer {

/// The messages of an mbox file, each ending in exactly one CR LF (one CR in a file whose lines
/// end in CR alone, which is then read by those line ends), with mboxrd escaping (">From " at a
/// line start) undone once.
///
/// A line that starts with "From " separates messages only at the start of the file or after
/// an empty line (empty, or a lone CR), so an unescaped "From " inside a text stays put. Bytes
/// before the first separator are dropped; no separator at all gives no message. Never fails.
std::vector<std::string> splitMbox(std::string_view data);

/// The low 32 bits of the 64-bit FNV-1a hash of `data`, as 8 lower-case hexadecimal digits.
std::string fingerprint(std::string_view data);

/// Where imported mail lands: "Imported" takes the place of an account folder.
inline constexpr std::string_view importedDirectory = "Imported";

/// The collection of single message files.
inline constexpr std::string_view looseMessages = "Loose Messages";

/// Files each message that reads as mail (a From, Date, Subject, Message-ID, To, Received or
/// Return-Path field in its header block) at
/// "Imported/{collection}/{yyyy}/{yyyy-MM-dd} {subject} i{fingerprint}.eml", dated by its Date
/// field, else its newest Received date, else the present moment. `collection` is made safe;
/// "Messages" stands in when nothing of it is left. Empty blocks and anything that isn't mail
/// are passed over. Returns the vault-relative paths of the messages filed, in order: a message
/// whose bytes are already below "Imported" reaches its existing file, which counts as filed
/// and isn't rewritten.
///
/// The new files reach the disk together, with one flush of the vault's file system at the end,
/// and none when nothing was written. A whole import of several files is an ImportBatch.
/// Throws what `ArchiveLayout::write` throws (std::system_error), or the flush's error; the
/// files written before the failure stay.
std::vector<std::string> store(const std::vector<std::string>& messages,
                               std::string_view collection, const ArchiveLayout& layout);

} // namespace qs::Importer
