#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace qs::Charsets {

/// A text encoding that the conversion library can decode.
struct Encoding {
    /// The converter's canonical name ("UTF-8", "ibm-5348_P100-1997", ...).
    std::string converterName;

    bool isUTF8() const { return converterName == "UTF-8"; }

    bool operator==(const Encoding&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Encoding& encoding);

/// The encoding a charset label names, or nothing for an empty or unknown label. The label is
/// trimmed of double quotes and spaces and lower-cased, mapped through a small table of common
/// mislabels ("latin1", "gb2312", "ks_c_5601-1987", ...), and otherwise looked up among the IANA
/// (then MIME and Windows) names of the conversion library. "us-ascii" gives UTF-8, so text
/// labelled ASCII never fails on 8-bit bytes. Accepts any string type or an optional one.
std::optional<Encoding> encoding(std::optional<std::string_view> label);

/// `bytes` as UTF-8 text. Tries, each step only if the one before failed: the encoding of
/// `charset` (nothing or empty for none) decoded strictly; UTF-8, strict; Windows-1252, strict;
/// UTF-8 with ill-formed sequences replaced by U+FFFD. Never fails. Thread-safe. The library's
/// Windows-1252 table maps every byte (the five unassigned ones to C1 controls), so in practice
/// the last step is reached only if that table is missing. `charset`
/// accepts any string type or an optional one.
std::string string(std::string_view bytes, std::optional<std::string_view> charset = std::nullopt);

/// `bytes` decoded strictly with `encoding`, or nothing if any byte sequence is ill-formed or
/// unmapped in it.
std::optional<std::string> decodeStrict(std::string_view bytes, const Encoding& encoding);

/// UTF-8 `text` as bytes of `encoding`, or nothing if `text` isn't valid UTF-8 or holds a
/// character the encoding lacks.
std::optional<std::string> encodeStrict(std::string_view text, const Encoding& encoding);

} // namespace qs::Charsets
