#include "model/FriendlyError.h"

#include "cleanup/CleanupError.h"
#include "imap/IMAPError.h"
#include "model/KeychainError.h"
#include "model/PasswordCommandError.h"
#include "support/Cancellation.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <system_error>

namespace {

using qs::IMAPError;
using qs::IMAPStatus;
using qs::FriendlyError::describe;

template <typename E>
std::exception_ptr as(E error) {
    return std::make_exception_ptr(std::move(error));
}

std::exception_ptr fileError(int code) {
    return as(std::system_error(code, std::generic_category(), "write"));
}

const std::string refusedAdvice =
    "The connection was refused. Check the server name and port (IMAP over TLS is usually 993).";
const std::string findAdvice = "Check the server name for typos, and that you’re online.";
const std::string offlineAdvice =
    "Connect to the internet and try again. Your vault is still readable offline.";
const std::string password = "The password wasn’t accepted";
const std::string gone = "That folder is gone";
const std::string slow = "The server asked us to slow down";

TEST(FriendlyError, EveryRowInOrder) {
    struct Case {
        const char* name;
        std::exception_ptr error;
        std::optional<std::string> host;
        std::string title;
        std::string advice; // empty: not compared
    };
    const std::optional<std::string> host = "imap.example.org";
    const std::optional<std::string> none;
    const std::vector<Case> cases = {
        {"cancellation before all", as(qs::CancellationError()), host, "Stopped",
         "Nothing more was changed."},
        {"cleanup error in its own words", as(qs::CleanupError::uidValidityChanged()), host,
         "Nothing more was changed",
         "The folder was renumbered on the server since it was checked. Run a backup, then check "
         "again."},
        // Connection failures, by the words the Linux transport really carries.
        {"refused, with host", as(IMAPError::connectionFailed("Connection refused")), host,
         "Couldn’t reach “imap.example.org”", refusedAdvice},
        {"refused, without host", as(IMAPError::connectionFailed("Connection refused")), none,
         "Couldn’t reach the server", refusedAdvice},
        {"posix 61", as(IMAPError::connectionFailed("POSIXErrorCode(rawValue: 61)")), host,
         "Couldn’t reach “imap.example.org”", refusedAdvice},
        {"posix with another number falls through",
         as(IMAPError::connectionFailed("POSIXErrorCode(rawValue: 60)")), host,
         "Couldn’t connect to “imap.example.org”", "POSIXErrorCode(rawValue: 60)"},
        {"unknown host", as(IMAPError::connectionFailed("Name or service not known")), host,
         "Couldn’t find “imap.example.org”", findAdvice},
        {"name resolution down",
         as(IMAPError::connectionFailed("Temporary failure in name resolution")), host,
         "Couldn’t find “imap.example.org”", findAdvice},
        {"network unreachable", as(IMAPError::connectionFailed("Network is unreachable")), host,
         "You seem to be offline", offlineAdvice},
        {"no route", as(IMAPError::connectionFailed("No route to host")), host,
         "You seem to be offline", offlineAdvice},
        {"not connected", as(IMAPError::connectionFailed("Transport endpoint is not connected")),
         host, "You seem to be offline", offlineAdvice},
        {"certificate, with host",
         as(IMAPError::connectionFailed("TLS handshake failed: certificate verify failed")), host,
         "A secure connection couldn’t be made",
         "“imap.example.org” didn’t offer a valid TLS certificate on this port."},
        {"wrong TLS version, without host",
         as(IMAPError::connectionFailed("TLS handshake failed: wrong version number")), none,
         "A secure connection couldn’t be made",
         "The server didn’t offer a valid TLS certificate on this port."},
        {"anything else keeps its text", as(IMAPError::connectionFailed("bad port")), host,
         "Couldn’t connect to “imap.example.org”", "bad port"},
        // Commands.
        {"LOGIN whatever the text",
         as(IMAPError::commandFailed("LOGIN", IMAPStatus::no, "Mailbox doesn't exist")), host,
         password, ""},
        {"AUTHENTICATE", as(IMAPError::commandFailed("AUTHENTICATE", IMAPStatus::no, "")), host,
         password, ""},
        {"authentication failed text",
         as(IMAPError::commandFailed("SELECT", IMAPStatus::no, "[AUTHENTICATIONFAILED] no")), host,
         password, ""},
        {"missing mailbox",
         as(IMAPError::commandFailed("SELECT", IMAPStatus::no, "Mailbox doesn't exist: Old")), host,
         gone,
         "It may have been renamed or deleted on the server. Re-check the folders in Settings › "
         "Accounts."},
        {"nonexistent",
         as(IMAPError::commandFailed("EXAMINE", IMAPStatus::no, "[NONEXISTENT] Unknown")), host,
         gone, ""},
        {"quota", as(IMAPError::commandFailed("UID FETCH", IMAPStatus::no, "Over quota")), host,
         slow,
         "Your provider is limiting connections right now. Wait a few minutes, then try again."},
        {"limit inside a longer word",
         as(IMAPError::commandFailed("UID FETCH", IMAPStatus::no, "Unlimited fun")), host, slow,
         ""},
        {"plain refusal",
         as(IMAPError::commandFailed("UID FETCH", IMAPStatus::bad, "Invalid sequence")), host,
         "The server said no", "UID FETCH was refused: Invalid sequence"},
        {"refusal without reason", as(IMAPError::commandFailed("UID FETCH", IMAPStatus::no, "")),
         host, "The server said no", "UID FETCH was refused: no reason given"},
        // The other cases.
        {"protocol", as(IMAPError::protocolError("garbage")), host,
         "Unexpected reply from “imap.example.org”",
         "Make sure this is an IMAP server on port 993. (garbage)"},
        {"time-out without host", as(IMAPError::timeout()), none, "The server stopped responding",
         "Check your internet connection and try again. Very large folders can take a while on "
         "slow networks."},
        {"time-out with host keeps the quote first", as(IMAPError::timeout()), host,
         "“imap.example.org” stopped responding", ""},
        {"closed", as(IMAPError::closed()), host, "The connection was closed",
         "The server hung up part-way. Try again — anything already saved stays saved."},
        {"insecure", as(IMAPError::insecureNotAllowed()), host,
         "Unencrypted connections aren’t allowed", "Quernstead only connects with TLS (port 993)."},
        // Files.
        {"disk full", fileError(ENOSPC), host, "Your disk is full",
         "Free some space on this computer (or choose another vault folder in Settings), then back "
         "up "
         "again."},
        {"no permission", fileError(EACCES), host, "Quernstead can’t write to the vault folder",
         "Choose a folder you own in Settings › General."},
        {"read-only disk", fileError(EROFS), host, "Quernstead can’t write to the vault folder",
         ""},
        {"a file in the vault's way", fileError(ENOTDIR), host,
         "Quernstead can’t write to the vault folder", ""},
        // Passwords: an unreachable keyring is not a missing password.
        {"no keyring", as(qs::KeychainError(2, "Cannot autolaunch D-Bus without X11 $DISPLAY")),
         host, "The keyring can’t be reached",
         "Passwords are kept in the desktop’s keyring, which isn’t available here (Cannot "
         "autolaunch D-Bus without X11 $DISPLAY). Unlock it in a desktop session, or give the "
         "account a password command."},
        {"password command", as(qs::PasswordCommandError("pass show w", "exited with status 1")),
         host, "The password command failed",
         "“pass show w” exited with status 1. Check that it prints the password when run by "
         "itself."},
        {"other file error", fileError(EIO), host, "Something went wrong",
         std::system_error(EIO, std::generic_category(), "write").what()},
        {"anything else", as(std::runtime_error("odd")), host, "Something went wrong", "odd"},
    };
    for (const auto& c : cases) {
        auto message = describe(c.error, c.host);
        EXPECT_EQ(message.title, c.title) << c.name;
        if (!c.advice.empty()) {
            EXPECT_EQ(message.advice, c.advice) << c.name;
        }
    }
}

TEST(FriendlyError, TextJoinsTitleAndAdvice) {
    EXPECT_EQ(describe(as(qs::CancellationError())).text(), "Stopped. Nothing more was changed.");
}

} // namespace
