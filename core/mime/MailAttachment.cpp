#include "mime/MailAttachment.h"

namespace qs {

std::ostream& operator<<(std::ostream& out, const MailAttachment& attachment) {
    out << "{#" << attachment.id << " \"" << attachment.filename << "\" " << attachment.mimeType
        << ", " << attachment.data.size() << " bytes";
    if (attachment.contentID) {
        out << ", cid " << *attachment.contentID;
    }
    return out << (attachment.isInline ? ", inline}" : "}");
}

} // namespace qs
