#include "mime/MessageDate.h"

#include "mime/MailDate.h"

namespace qs::MessageDate {

std::optional<Date> of(const MIMEHeaders& headers) {
    if (const std::string* field = headers.first("Date")) {
        if (auto date = MailDate::parse(*field)) {
            return date;
        }
    }
    // Each relay stamps its own Received field on top, so the newest is the delivery to the
    // mailbox: the closest thing to the day the owner got the message.
    std::optional<Date> newest;
    for (const std::string& received : headers.all("Received")) {
        size_t semicolon = received.rfind(';');
        if (semicolon == std::string::npos) {
            continue;
        }
        auto date = MailDate::parse(std::string_view(received).substr(semicolon + 1));
        if (date && (!newest || *date > *newest)) {
            newest = date;
        }
    }
    return newest;
}

} // namespace qs::MessageDate
