#pragma once

#include "vault/IMAPMailbox.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs::cli {

/// The special use of a mailbox (RFC 6154 attributes, and the name INBOX): "inbox", "sent",
/// "archive", "all", ... or nothing.
std::optional<std::string> mailboxRole(const IMAPMailbox& mailbox);

/// The folders the add-account flow preselects: for "gmail" the one mailbox whose role is
/// "all" when there is one; otherwise every mailbox whose role is inbox, sent or archive; if
/// that leaves nothing, the mailbox named "INBOX". Names as the server spells them, in list
/// order. Pure.
std::vector<std::string> defaultFolders(const std::vector<IMAPMailbox>& mailboxes,
                                        std::string_view provider);

} // namespace qs::cli
