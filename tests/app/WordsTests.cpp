#include "model/BackupStatus.h"
#include "model/Fmt.h"
#include "model/FriendlyError.h"
#include "model/PlatformWords.h"

#include "imap/IMAPError.h"
#include "model/KeychainError.h"
#include "model/PasswordCommandError.h"
#include "support/Cancellation.h"

#include <QDateTime>
#include <gtest/gtest.h>

#include <cerrno>
#include <system_error>

namespace {

using qs::IMAPError;
using qs::IMAPStatus;
using qs::FriendlyError::describe;

template <typename E>
std::exception_ptr as(E error) {
    return std::make_exception_ptr(std::move(error));
}
std::exception_ptr connection(const char* words) {
    return as(IMAPError::connectionFailed(words));
}
std::exception_ptr refused(const char* command, const char* words, IMAPStatus s = IMAPStatus::no) {
    return as(IMAPError::commandFailed(command, s, words));
}
std::exception_ptr fileError(int code) {
    return as(std::system_error(code, std::generic_category(), "write"));
}

// Every title and sentence here is shown to the user as it stands; an empty advice isn't compared.
TEST(FriendlyError, EveryRowInOrder) {
    const std::string refusedAdvice = "The connection was refused. Check the server name and port "
                                      "(IMAP over TLS is usually 993).";
    const std::string password = "The password wasn’t accepted";
    const std::string other = "Something went wrong";
    const std::optional<std::string> host = "imap.example.org", none;
    const struct {
        std::exception_ptr error;
        std::optional<std::string> host;
        std::string title, advice;
    } rows[] = {
        // Connection failures, by the words the Linux transport really carries.
        {connection("Connection refused"), host, "Couldn’t reach “imap.example.org”",
         refusedAdvice},
        {connection("Connection refused"), none, "Couldn’t reach the server", refusedAdvice},
        {connection("POSIXErrorCode(rawValue: 60)"), host, "Couldn’t connect to “imap.example.org”",
         "POSIXErrorCode(rawValue: 60)"},
        {connection("Name or service not known"), host, "Couldn’t find “imap.example.org”",
         "Check the server name for typos, and that you’re online."},
        {connection("Network is unreachable"), host, "You seem to be offline",
         "Connect to the internet and try again. Your vault is still readable offline."},
        {connection("TLS handshake failed: certificate verify failed"), host,
         "A secure connection couldn’t be made",
         "“imap.example.org” didn’t offer a valid TLS certificate on this port."},
        // Commands: a refused LOGIN is the password whatever the server's text.
        {refused("LOGIN", "Mailbox doesn't exist"), host, password, ""},
        {refused("SELECT", "[AUTHENTICATIONFAILED] no"), host, password, ""},
        {refused("SELECT", "Mailbox doesn't exist: Old"), host, "That folder is gone",
         "It may have been renamed or deleted on the server. Re-check the folders in Settings › "
         "Accounts."},
        {refused("UID FETCH", "Over quota"), host, "The server asked us to slow down",
         "Your provider is limiting connections right now. Wait a few minutes, then try again."},
        {refused("UID FETCH", "Invalid sequence", IMAPStatus::bad), host, "The server said no",
         "UID FETCH was refused: Invalid sequence"},
        {refused("UID FETCH", ""), host, "The server said no",
         "UID FETCH was refused: no reason given"},
        {as(IMAPError::protocolError("garbage")), host, "Unexpected reply from “imap.example.org”",
         "Make sure this is an IMAP server on port 993. (garbage)"},
        {as(IMAPError::timeout()), none, "The server stopped responding",
         "Check your internet connection and try again. Very large folders can take a while on "
         "slow networks."},
        {as(IMAPError::timeout()), host, "“imap.example.org” stopped responding", ""},
        {as(IMAPError::closed()), host, "The connection was closed",
         "The server hung up part-way. Try again — anything already saved stays saved."},
        {as(IMAPError::insecureNotAllowed()), host, "Unencrypted connections aren’t allowed",
         "Quernstead only connects with TLS (port 993)."},
        {fileError(ENOSPC), host, "Your disk is full",
         "Free some space on this computer (or choose another vault folder in Settings), then back "
         "up again."},
        {fileError(EACCES), host, "Quernstead can’t write to the vault folder",
         "Choose a folder you own in Settings › General."},
        // Passwords: an unreachable keyring is not a missing password.
        {as(qs::KeychainError(2, "Cannot autolaunch D-Bus without X11 $DISPLAY")), host,
         "The keyring can’t be reached",
         "Passwords are kept in the desktop’s keyring, which isn’t available here (Cannot "
         "autolaunch D-Bus without X11 $DISPLAY). Unlock it in a desktop session, or give the "
         "account a password command."},
        {as(qs::PasswordCommandError("pass show w", "exited with status 1")), host,
         "The password command failed",
         "“pass show w” exited with status 1. Check that it prints the password when run by "
         "itself."},
        {fileError(EIO), host, other,
         std::system_error(EIO, std::generic_category(), "write").what()},
        {as(std::runtime_error("odd")), host, other, "odd"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.title);
        auto message = describe(row.error, row.host);
        EXPECT_EQ(message.title, row.title);
        if (!row.advice.empty()) {
            EXPECT_EQ(message.advice, row.advice);
        }
    }
    EXPECT_EQ(describe(as(qs::CancellationError())).text(), "Stopped. Nothing more was changed.");
}

qs::Date localDate(int year, int month, int day, int hour, int minute) {
    QDateTime when(QDate(year, month, day), QTime(hour, minute), Qt::LocalTime);
    return qs::Date(std::chrono::milliseconds(when.toMSecsSinceEpoch()));
}

const QLocale english(QLocale::English, QLocale::UnitedStates);

// Ages round down through their units; row dates say the time today, "Yesterday", or the day;
// closing words group digits and agree in number; only whole words are adapted to this platform.
TEST(Fmt, AgesRowDatesClosingAndPlatformWords) {
    const auto now = localDate(2024, 3, 10, 15, 0);
    const std::pair<std::int64_t, const char*> ages[] = {
        {-3'600, "just now"}, {89, "just now"},     {90, "1 min ago"},   {3'599, "59 min ago"},
        {3'600, "1 h ago"},   {86'399, "23 h ago"}, {86'400, "1 d ago"}, {5'183'999, "59 d ago"}};
    for (const auto& [secondsAgo, expected] : ages)
        EXPECT_EQ(qs::Fmt::ago(now - std::chrono::seconds(secondsAgo), now, english), expected)
            << secondsAgo << " s";
    EXPECT_EQ(qs::Fmt::ago(localDate(2023, 12, 1, 9, 30), now, english), "Dec 1, 2023");
    const std::pair<qs::Date, const char*> rows[] = {{localDate(2024, 3, 10, 9, 5), "09:05"},
                                                     {localDate(2024, 3, 9, 23, 59), "Yesterday"},
                                                     {localDate(2024, 3, 9, 0, 0), "Yesterday"},
                                                     {localDate(2024, 3, 8, 23, 59), "Mar 08"},
                                                     {localDate(2023, 3, 10, 12, 0), "Mar 10"}};
    for (const auto& [date, expected] : rows)
        EXPECT_EQ(qs::Fmt::rowDate(date, now, english), expected);
    EXPECT_EQ(qs::BackupStatus::closingMessage(false, 1234, english), "1,234 new messages saved");
    EXPECT_EQ(qs::BackupStatus::closingMessage(false, 3, english, 1),
              "3 new messages saved · 1 repaired");
    EXPECT_EQ(qs::BackupStatus::attentionMessage(2), "Backup finished — 2 accounts need attention");
    const std::pair<const char16_t*, const char16_t*> platform[] = {
        {u"Show Vault in Finder", u"Show Vault in File Manager"},
        {u"It’s kept in your Mac’s Keychain and goes nowhere else.",
         u"It’s kept in your computer’s keyring and goes nowhere else."},
        {u"Click to preview with Quick Look", u"Click to preview with Preview"},
        {u"nothing leaves your Mac except", u"nothing leaves your computer except"},
        {u"Machine and iMac and Macs stay", u"Machine and iMac and Macs stay"},
        {u"Mac", u"computer"},
    };
    for (const auto& [elsewhere, here] : platform)
        EXPECT_EQ(qs::PlatformWords::adapt(QStringView(elsewhere)), QString::fromUtf16(here));
}

} // namespace
