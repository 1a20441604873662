#pragma once

#include <iosfwd>
#include <optional>
#include <string>

namespace qs::cli {

/// Whether standard output goes to a terminal (live progress) or elsewhere (one line a step).
bool stdoutIsTerminal();

/// Errors only from here on (--quiet, for cron): standard output is dropped, and so are the
/// notes below. Errors and prompts still reach standard error.
void beQuiet();

/// Where passing notes go that aren't results ("Signing in…", "Stopping…"): standard error,
/// or nowhere when quiet.
std::ostream& notes();

/// Reads one line from standard input without its line end; nothing at end of input.
std::optional<std::string> readLine();

/// Shows `prompt` on standard error and reads a line with echo off when standard input is a
/// terminal (the echo comes back even when reading fails).
std::optional<std::string> readSecret(const std::string& prompt);

} // namespace qs::cli
