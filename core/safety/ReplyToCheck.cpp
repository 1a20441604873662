#include "safety/ReplyToCheck.h"

#include "safety/Domains.h"

namespace qs::ReplyToCheck {

std::optional<MailAddress> mismatch(const std::vector<MailAddress>& from,
                                    const std::vector<MailAddress>& replyTo) {
    if (from.empty()) {
        return std::nullopt;
    }
    std::string fromDomain = from.front().domain();
    if (fromDomain.empty()) {
        return std::nullopt;
    }
    std::string site = Domains::registrable(fromDomain);
    for (const MailAddress& address : replyTo) {
        std::string domain = address.domain();
        if (!domain.empty() && Domains::registrable(domain) != site) {
            return address;
        }
    }
    return std::nullopt;
}

} // namespace qs::ReplyToCheck
