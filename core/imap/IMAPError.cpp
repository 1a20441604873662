#include "imap/IMAPError.h"

namespace qs {

namespace {

std::string describe(IMAPError::Kind kind, const std::string& text, const std::string& command,
                     IMAPStatus status) {
    using Kind = IMAPError::Kind;
    switch (kind) {
    case Kind::connectionFailed:
        return "Couldn’t connect: " + text;
    case Kind::commandFailed:
        if (command == "LOGIN") {
            return "Sign-in was refused (" + std::string(rawValue(status)) + "): " + text;
        }
        return command + " failed (" + std::string(rawValue(status)) + "): " + text;
    case Kind::protocolError:
        return "Unexpected server reply: " + text;
    case Kind::timeout:
        return "The server stopped responding.";
    case Kind::closed:
        return "The server closed the connection.";
    case Kind::insecureNotAllowed:
        return "Unencrypted connections are only allowed to 127.0.0.1 in developer mode.";
    }
    return "IMAP error";
}

} // namespace

IMAPError::IMAPError(Kind kind, std::string text, std::string command, IMAPStatus status)
    : kind_(kind), text_(std::move(text)), command_(std::move(command)), status_(status),
      description_(describe(kind_, text_, command_, status_)) {}

IMAPError IMAPError::connectionFailed(std::string text) {
    return IMAPError(Kind::connectionFailed, std::move(text), {}, IMAPStatus::no);
}

IMAPError IMAPError::commandFailed(std::string command, IMAPStatus status, std::string text) {
    return IMAPError(Kind::commandFailed, std::move(text), std::move(command), status);
}

IMAPError IMAPError::protocolError(std::string text) {
    return IMAPError(Kind::protocolError, std::move(text), {}, IMAPStatus::no);
}

IMAPError IMAPError::timeout() {
    return IMAPError(Kind::timeout, {}, {}, IMAPStatus::no);
}

IMAPError IMAPError::closed() {
    return IMAPError(Kind::closed, {}, {}, IMAPStatus::no);
}

IMAPError IMAPError::insecureNotAllowed() {
    return IMAPError(Kind::insecureNotAllowed, {}, {}, IMAPStatus::no);
}

std::ostream& operator<<(std::ostream& out, const IMAPError& error) {
    return out << "IMAPError(\"" << error.description() << "\")";
}

} // namespace qs
