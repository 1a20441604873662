#pragma once

#include "mime/ByteSlice.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace qs {

/// One attachment of a parsed message.
struct MailAttachment {
    /// Index in the message's `attachments`.
    int64_t id = 0;
    /// From the part, or made up as "attachment-N[.ext]".
    std::string filename;
    /// `type/subtype`, lower case.
    std::string mimeType;
    /// Decoded for base64 and quoted-printable, otherwise the raw body (sharing the message's
    /// buffer).
    ByteSlice data;
    /// From Content-ID, without angle brackets.
    std::optional<std::string> contentID;
    /// Displayed within the body rather than offered as a file.
    bool isInline = false;

    bool operator==(const MailAttachment&) const = default;
};

std::ostream& operator<<(std::ostream& out, const MailAttachment& attachment);

} // namespace qs
