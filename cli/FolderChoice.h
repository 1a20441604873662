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

/// The mailbox a person means by `wanted`: its name as the server spells it (modified UTF-7),
/// its display name as the CLI prints it, or, for the inbox, "INBOX" in any case. Pure.
const IMAPMailbox* findFolder(const std::vector<IMAPMailbox>& mailboxes, std::string_view wanted);

/// Finds every name of `wanted` in `mailboxes`; on the first unknown one, writes it with the
/// valid display names on standard error and gives nothing. Names as the server spells them.
std::optional<std::vector<std::string>> chooseFolders(const std::vector<IMAPMailbox>& mailboxes,
                                                      const std::vector<std::string>& wanted);

/// The display name of the mailbox named `name`, or `name` itself when it isn't among them.
std::string displayNameOf(const std::vector<IMAPMailbox>& mailboxes, const std::string& name);

} // namespace qs::cli
