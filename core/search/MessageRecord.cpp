#include "search/MessageRecord.h"

#include <ostream>

namespace qs {

std::string_view MessageRecord::fromDisplay() const {
    if (!fromName.empty()) {
        return fromName;
    }
    if (!fromEmail.empty()) {
        return fromEmail;
    }
    return "(unknown sender)";
}

bool MessageRecord::isSuspicious() const {
    return trust == SenderTrust::failed || replyToMismatch || linkWarnings > 0 ||
           senderFlag.has_value();
}

std::ostream& operator<<(std::ostream& out, const MessageRecord& r) {
    out << "MessageRecord{id=" << r.id << ", path=\"" << r.path << "\", account=\"" << r.account
        << "\", folder=\"" << r.folder << "\", subject=\"" << r.subject << "\", fromName=\""
        << r.fromName << "\", fromEmail=\"" << r.fromEmail << "\", to=\"" << r.to
        << "\", date=" << ISODate::format(r.date) << ", size=" << r.size << ", snippet=\""
        << r.snippet << "\", attachments=" << r.attachments << ", trackers=" << r.trackers
        << ", remoteImages=" << r.remoteImages << ", trust=" << toString(r.trust)
        << ", replyToMismatch=" << r.replyToMismatch << ", linkWarnings=" << r.linkWarnings
        << ", mtime=" << r.mtime << ", senderFlag=";
    if (r.senderFlag) {
        out << '"' << *r.senderFlag << '"';
    } else {
        out << "absent";
    }
    return out << "}";
}

} // namespace qs
