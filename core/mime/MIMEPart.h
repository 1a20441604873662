#pragma once

#include "mime/ByteSlice.h"
#include "mime/ContentType.h"
#include "mime/HeaderParams.h"
#include "mime/MIMEHeaders.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace qs {

/// One node of a message's MIME tree. A plain value: the body is a slice of the message's
/// shared buffer, still transfer-encoded, and is decoded only when asked.
struct MIMEPart {
    /// This part's own header block.
    MIMEHeaders headers;
    /// As parsed from Content-Type, or the default its parent passed down.
    ContentType contentType;
    /// Still transfer-encoded; empty for a multipart that was split into children.
    ByteSlice body;
    /// In file order.
    std::vector<MIMEPart> children;

    /// The first Content-Transfer-Encoding, trimmed and lower-cased; "7bit" if none.
    std::string transferEncoding() const;

    /// The first Content-Disposition through the parameter parser: its value (case kept) and
    /// parameters. Nothing if the part has none.
    std::optional<HeaderParams::Parsed> disposition() const;

    /// The file name: the disposition's `filename` parameter, else the content type's `name`,
    /// whichever is first not empty, with encoded words decoded. Nothing if neither is given.
    std::optional<std::string> filename() const;

    /// The first Content-ID with `<`, `>`, spaces and tabs trimmed from both ends.
    std::optional<std::string> contentID() const;

    /// The body with its transfer encoding undone. Shares the body's buffer when the encoding
    /// is neither base64 nor quoted-printable; otherwise a new buffer. Never fails.
    ByteSlice decodedBody() const;

    /// The decoded body as UTF-8 text through the content type's charset, with the fallbacks
    /// of the charset decoder (UTF-8, Windows-1252, repaired UTF-8). Never fails.
    std::string decodedText() const;

    bool operator==(const MIMEPart&) const = default;
};

/// A compact outline of the tree (types, body sizes, children), for test failures.
std::ostream& operator<<(std::ostream& out, const MIMEPart& part);

} // namespace qs
