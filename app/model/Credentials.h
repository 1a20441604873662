#pragma once

#include "vault/MailAccount.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace qs::Credentials {

/// The one door for passwords. Normally they live in the system's keychain (the Secret
/// Service); for tooling runs a JSON file named by QUERNSTEAD_CREDENTIALS_FILE takes its place,
/// and failing that a process-wide map in memory. Callers don't know which store is in force.
/// Passwords never enter the vault.

/// "{username}@{host}:{port}": the name of a password in the file and in memory.
std::string key(const MailAccount& account);

/// The credentials file: the path in QUERNSTEAD_CREDENTIALS_FILE when that is set and not
/// empty.
std::optional<std::filesystem::path> file();

/// True unless the credentials file is in force or QUERNSTEAD_DEMO_DIR or
/// QUERNSTEAD_SNAPSHOT_DIR is set, so a run under tooling never touches the real keychain.
/// Read afresh on every call.
bool usesKeychain();

/// Keeps `password` for the account. In the keychain: see Keychain::save (throws
/// KeychainError). Otherwise the map is read from the file (or taken from memory when the file
/// is missing or damaged), the entry set, the map kept in memory and, with a file in force,
/// written over the file atomically, keeping other accounts' entries; a failed write throws
/// std::system_error.
void save(std::string_view password, const MailAccount& account);

/// The account's password: the output of its password command when it has one (see
/// PasswordCommand::run, which throws PasswordCommandError), else the stored one, if any.
/// Throws KeychainError when the keyring can't be reached: that is not the same as no
/// password, and the user must hear the difference.
std::optional<std::string> password(const MailAccount& account);

/// Removes the account's password (of every account with the same user, host and port).
/// Never fails and reports nothing.
void remove(const MailAccount& account) noexcept;

} // namespace qs::Credentials
