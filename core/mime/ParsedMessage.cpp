#include "mime/ParsedMessage.h"

#include "mime/HTMLText.h"
#include "mime/TextTrim.h"

namespace qs {

std::vector<MailAttachment> ParsedMessage::fileAttachments() const {
    std::vector<MailAttachment> files;
    for (const MailAttachment& attachment : attachments) {
        // An inline image the HTML refers to is part of what the reader shows, not a file.
        bool shownByHTML = attachment.isInline && attachment.contentID && htmlBody &&
                           htmlBody->find("cid:" + *attachment.contentID) != std::string::npos;
        if (!shownByHTML) {
            files.push_back(attachment);
        }
    }
    return files;
}

std::string ParsedMessage::plainText() const {
    if (textBody && !TextTrim::whitespaceAndNewlines(*textBody).empty()) {
        return *textBody;
    }
    if (htmlBody) {
        return HTMLText::toPlain(*htmlBody);
    }
    return {};
}

std::ostream& operator<<(std::ostream& out, const ParsedMessage& message) {
    out << "{subject: \"" << message.subject << "\", root: " << message.root;
    if (message.textBody) {
        out << ", text: " << message.textBody->size() << " bytes";
    }
    if (message.htmlBody) {
        out << ", html: " << message.htmlBody->size() << " bytes";
    }
    out << ", attachments: [";
    for (size_t i = 0; i < message.attachments.size(); ++i) {
        out << (i ? ", " : "") << message.attachments[i];
    }
    return out << "]}";
}

} // namespace qs
