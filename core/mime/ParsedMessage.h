#pragma once

#include "mime/MIMEHeaders.h"
#include "mime/MIMEPart.h"
#include "mime/MailAddress.h"
#include "mime/MailAttachment.h"
#include "support/Date.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace qs {

/// A whole message as the parser read it: its tree, display fields, bodies and attachments.
struct ParsedMessage {
    /// The root's header fields.
    MIMEHeaders headers;
    MIMEPart root;
    /// The first Subject, encoded words decoded, trimmed; empty if none.
    std::string subject;
    std::vector<MailAddress> from;
    std::vector<MailAddress> to;
    std::vector<MailAddress> cc;
    std::vector<MailAddress> replyTo;
    std::optional<Date> date;
    /// Message-ID without `<`, `>`, spaces and tabs at the ends.
    std::optional<std::string> messageID;
    /// The plain (and enriched) text parts joined by two line feeds; nothing if none.
    std::optional<std::string> textBody;
    /// The HTML parts joined by "<hr>"; nothing if none.
    std::optional<std::string> htmlBody;
    std::vector<MailAttachment> attachments;

    /// `attachments` less those the HTML shows: inline ones with a content id that `htmlBody`
    /// refers to as "cid:" followed by that id.
    std::vector<MailAttachment> fileAttachments() const;

    /// `textBody` when it holds more than whitespace (returned untrimmed), else the HTML
    /// converted to plain text, else the empty text.
    std::string plainText() const;

    bool operator==(const ParsedMessage&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ParsedMessage& message);

} // namespace qs
