#pragma once

#include <exception>
#include <iosfwd>
#include <optional>
#include <string>

namespace qs::FriendlyError {

/// Any error of the backup, sign-in and cleanup paths in two plain sentences for someone who
/// doesn't know what IMAP is.
struct Message {
    std::string title;
    std::string advice;

    /// "{title}. {advice}"
    std::string text() const { return title + ". " + advice; }

    friend bool operator==(const Message&, const Message&) = default;
};

std::ostream& operator<<(std::ostream& out, const Message& message);

/// Words `error` by its type, and where the system gives only text, by words inside it. The
/// first rule that fits wins: cancellation ("Stopped"), CleanupError, IMAPError by case (a
/// failed connection by the words of its text: refused, unknown host, offline, TLS, else its
/// own text), KeychainError (the keyring can't be reached), PasswordCommandError, std::system_error
/// by errno (no space, no permission or a read-only disk), and anything else as "Something went
/// wrong" with its own text. `host` is the server's name; without it the sentences say "the
/// server". Pure; never throws. A null `error` reads as "Something went wrong".
Message describe(const std::exception_ptr& error, const std::optional<std::string>& host = {});

} // namespace qs::FriendlyError
