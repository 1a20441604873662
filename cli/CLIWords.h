#pragma once

#include "model/FriendlyError.h"

#include <exception>
#include <optional>
#include <string>

namespace qs::cli::CLIWords {

/// The window's words that point at the window ("Settings › General", "the button below")
/// replaced by what does the same from a terminal; every other word is kept. Pure.
std::string forTerminal(std::string text);

/// FriendlyError's message for `error`, in the terminal's words; a failed secure connection
/// also says how to trust a private certificate authority.
FriendlyError::Message describe(const std::exception_ptr& error,
                                const std::optional<std::string>& host = {});

/// Writes "{title}. {advice}" on standard error (even when quiet), with `prefix` before it.
void report(const FriendlyError::Message& message, const std::string& prefix = {});

} // namespace qs::cli::CLIWords
