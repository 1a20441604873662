#pragma once

#include "model/ProviderPreset.h"
#include "vault/IMAPMailbox.h"
#include "vault/IMAPServer.h"
#include "vault/MailAccount.h"

#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// What the add-account sheet has gathered so far, and the rules that turn it into a server to
/// sign in to and an account to keep. A plain value: it never touches the network or a store.
struct AccountDraft {
    /// The only host for which an unencrypted connection is offered and honoured.
    static constexpr std::string_view localTestHost = "127.0.0.1";

    std::string presetId = "gmail";
    /// As typed; the field values are trimmed where they are used.
    std::string label;
    std::string username;
    std::string password;
    /// Read only for "custom"; a port that isn't a number from 1 to 65535 reads as 993.
    std::string host;
    std::string port = "993";
    bool plaintext = false;

    const ProviderPreset& preset() const { return ProviderPreset::named(presetId); }
    bool isCustom() const { return preset().id == "custom"; }
    /// The plaintext switch is shown only for a custom server at exactly 127.0.0.1.
    bool offersPlaintext() const;
    /// A user name, a password and, for "custom", a host are filled in.
    bool canConnect() const;
    /// The preset's server, or for "custom" the fields; plaintext only as `offersPlaintext`.
    IMAPServer server() const;
    /// The user name without blanks around it.
    std::string usernameForUse() const;
    /// The password as the provider expects it (Gmail's blanks taken out).
    std::string passwordForUse() const { return preset().passwordForUse(password); }

    /// A new account of this draft: the label falls back to the preset's name, `folders` keeps
    /// the mailboxes' order, `knownFolders` is the whole list.
    MailAccount account(const std::vector<IMAPMailbox>& mailboxes,
                        const std::vector<std::string>& folders) const;

    /// The folders chosen before the user touches the list: for Gmail the mailbox whose role is
    /// "all" alone; otherwise every "inbox", "sent" and "archive" (so INBOX at least).
    static std::vector<std::string> defaultFolders(std::string_view presetId,
                                                   const std::vector<IMAPMailbox>& mailboxes);
    /// A mailbox's special use: "inbox" for INBOX in any case, else its first special-use
    /// attribute (\All, \Archive, \Drafts, \Flagged, \Junk, \Sent, \Trash) in lower case
    /// without the backslash; empty when it has none.
    static std::string role(const IMAPMailbox& mailbox);
};

} // namespace qs
