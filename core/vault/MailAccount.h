#pragma once

#include "support/Date.h"
#include "support/UUID.h"
#include "vault/IMAPMailbox.h"
#include "vault/IMAPServer.h"

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// One configured account, identified by `id`; equal and hashed over all fields.
/// accounts.json is a JSON array of these; every key is required except "lastBackup" and
/// "passwordCommand", which are left out while absent.
struct MailAccount {
    /// Stable identity; names the account's sync file.
    UUID id;
    /// The name the user sees; also the source of the account's folder name.
    std::string label;
    /// Login name.
    std::string username;
    IMAPServer server;
    /// Which provider preset made the account.
    std::string provider;
    /// Mailbox names (IMAP `name`) chosen for backup, in order. Empty means every listed
    /// mailbox whose name upper-cased is "INBOX".
    std::vector<std::string> folders;
    /// The last mailbox list seen from the server.
    std::vector<IMAPMailbox> knownFolders;
    /// When a backup of this account last finished.
    std::optional<Date> lastBackup;
    /// A program whose first line of output is the password ("pass show mail/work"), for
    /// machines without a reachable keyring; the password itself is then stored nowhere.
    std::optional<std::string> passwordCommand;

    /// The account's folder in the vault: the label made safe (at most 60 characters and 150
    /// bytes). Never stored; may be empty for a label of nothing but unsafe characters.
    std::string directoryName() const;

    /// accounts.json: a compact JSON array.
    static std::string encodeList(const std::vector<MailAccount>& accounts);
    /// Reads accounts.json; nothing when the text is not JSON or any entry is damaged (a
    /// single bad entry makes the whole file unreadable).
    static std::optional<std::vector<MailAccount>> decodeList(std::string_view json);

    friend bool operator==(const MailAccount&, const MailAccount&) = default;
};

void to_json(nlohmann::json& json, const MailAccount& account);
/// Throws nlohmann::json::exception for a missing required key or a value of the wrong type.
void from_json(const nlohmann::json& json, MailAccount& account);

std::ostream& operator<<(std::ostream& out, const MailAccount& account);

} // namespace qs

template <>
struct std::hash<qs::MailAccount> {
    size_t operator()(const qs::MailAccount& account) const noexcept;
};
