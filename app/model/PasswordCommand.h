#pragma once

#include <string>

namespace qs::PasswordCommand {

/// Runs `command` and returns the first line of what it prints, without its line end: the way
/// headless users hand over a password kept by a password manager ("pass show mail/work"),
/// so that it is stored neither in the vault nor in a keyring.
///
/// The command is split into words with the shell's quoting rules but run without a shell
/// (no expansion, no pipes), found on PATH, with the caller's standard input and error, so
/// that a password manager can still ask for its passphrase on a terminal. Blocks until it
/// ends. Throws PasswordCommandError when it can't be started, ends with a status other than
/// 0 or by a signal, or prints an empty first line.
std::string run(const std::string& command);

} // namespace qs::PasswordCommand
