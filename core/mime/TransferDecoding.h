#pragma once

#include <string>
#include <string_view>

namespace qs::TransferDecoding {

/// The body of a part with its Content-Transfer-Encoding undone. `encoding` must already be
/// lower case: "base64" and "quoted-printable" select their decoders, anything else ("7bit",
/// "8bit", "binary", unknown names) returns the bytes unchanged. Never fails.
std::string decode(std::string_view bytes, std::string_view encoding);

/// Lenient base64 that stops where the encoded data ends: at its `=` padding, or at the first
/// line holding anything but the alphabet, `=` and blanks, or blanks between characters of the
/// alphabet (words of text), once data has begun (lines before it that aren't base64 are
/// passed over). Other blanks and line ends are ignored; a final lone
/// character is dropped and a short final group is decoded as if padded. Never fails; no
/// usable input gives empty bytes.
std::string base64(std::string_view bytes);

/// Lenient quoted-printable: `=XX` (hex of either case) gives one byte, `=` followed by spaces
/// or tabs and a line end is a soft line break, `=` with trailing blanks at the very end is
/// dropped, and any other `=` stays literally. Trailing whitespace on lines is kept.
/// `header` is accepted for the RFC 2047 "Q" form and changes nothing: the caller turns `_`
/// into spaces first.
std::string quotedPrintable(std::string_view bytes, bool header = false);

/// The value of one hexadecimal digit of either case, or -1.
inline int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace qs::TransferDecoding
