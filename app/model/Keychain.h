#pragma once

#include "vault/MailAccount.h"

#include <optional>
#include <string>
#include <string_view>

namespace qs::Keychain {

/// The system's password store: the Secret Service (GNOME Keyring, KWallet) through libsecret.
/// An item is addressed by server, user, port and protocol "imaps", so two accounts with the
/// same user, host and port share one password. Calls are synchronous and may run on any
/// thread.

/// The item's label, "Quernstead – {username}".
std::string label(const MailAccount& account);

/// The comment stored with every item (as an attribute, the Secret Service having no field
/// for it).
inline constexpr std::string_view comment =
    "App-specific password used by Quernstead to back up mail";

/// Replaces any item of the account's address with one holding `password` (UTF-8), so the
/// label and comment are always current. Throws KeychainError with the store's message.
void save(std::string_view password, const MailAccount& account);

/// The stored password; nothing when there is none or the secret is not valid UTF-8. Throws
/// KeychainError when the store can't be reached, so that a headless machine isn't told that
/// no password was saved.
std::optional<std::string> password(const MailAccount& account);

/// Removes the item of the account's address; failures are ignored.
void remove(const MailAccount& account) noexcept;

} // namespace qs::Keychain
