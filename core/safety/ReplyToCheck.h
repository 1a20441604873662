#pragma once

#include "mime/MailAddress.h"

#include <optional>
#include <vector>

/// Whether replies would go to another site than the one the message came from.
namespace qs::ReplyToCheck {

/// The first Reply-To address (ignoring those without a domain) whose registrable domain
/// differs from that of the first From address; nothing when all agree, or when there is no
/// From address with a domain. A reply address at a subdomain of the sender's site agrees.
std::optional<MailAddress> mismatch(const std::vector<MailAddress>& from,
                                    const std::vector<MailAddress>& replyTo);

} // namespace qs::ReplyToCheck
