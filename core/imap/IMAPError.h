#pragma once

#include "imap/IMAPStatus.h"

#include <exception>
#include <ostream>
#include <string>

namespace qs {

/// The failure of an IMAP session or command. The cases are kept apart, with their payloads in
/// fields of their own, because the wording for the user is chosen by case and by the words of
/// `text` (the system's own error texts, such as "Connection refused" or "certificate verify
/// failed", are carried there unchanged).
class IMAPError : public std::exception {
public:
    enum class Kind {
        connectionFailed,   ///< "Couldn’t connect: {text}"
        commandFailed,      ///< "Sign-in was refused ({status}): {text}" for LOGIN, otherwise
                            ///< "{command} failed ({status}): {text}"
        protocolError,      ///< "Unexpected server reply: {text}"
        timeout,            ///< "The server stopped responding."
        closed,             ///< "The server closed the connection."
        insecureNotAllowed, ///< "Unencrypted connections are only allowed to 127.0.0.1 in
                            ///< developer mode."
    };

    static IMAPError connectionFailed(std::string text);
    static IMAPError commandFailed(std::string command, IMAPStatus status, std::string text);
    static IMAPError protocolError(std::string text);
    static IMAPError timeout();
    static IMAPError closed();
    static IMAPError insecureNotAllowed();

    Kind kind() const { return kind_; }
    /// The payload text of connectionFailed, commandFailed and protocolError; empty otherwise.
    const std::string& text() const { return text_; }
    /// The command word of commandFailed ("LOGIN", "UID FETCH", "literal"); empty otherwise.
    const std::string& command() const { return command_; }
    /// The status of commandFailed; `no` for the other cases, where it means nothing.
    IMAPStatus status() const { return status_; }

    /// The text for the user, as listed with the cases.
    const std::string& description() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

    bool operator==(const IMAPError& other) const {
        return kind_ == other.kind_ && text_ == other.text_ && command_ == other.command_ &&
               status_ == other.status_;
    }

private:
    IMAPError(Kind kind, std::string text, std::string command, IMAPStatus status);

    Kind kind_;
    std::string text_;
    std::string command_;
    IMAPStatus status_;
    std::string description_;
};

std::ostream& operator<<(std::ostream& out, const IMAPError& error);

} // namespace qs
