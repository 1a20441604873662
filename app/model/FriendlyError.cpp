#include "model/FriendlyError.h"

#include "cleanup/CleanupError.h"
#include "imap/IMAPError.h"
#include "model/KeychainError.h"
#include "model/PasswordCommandError.h"
#include "model/PlatformWords.h"
#include "support/Cancellation.h"
#include "vault/VaultBusyError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>
#include <ostream>
#include <string_view>
#include <system_error>

namespace qs::FriendlyError {

namespace {

std::string lower(std::string_view text) {
    std::string out(text);
    std::ranges::transform(out, out.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    });
    return out;
}

bool containsAny(const std::string& text, std::initializer_list<std::string_view> words) {
    return std::ranges::any_of(
        words, [&](std::string_view w) { return text.find(w) != std::string::npos; });
}

// {H}: the host in curly quotes, or "the server".
std::string quoted(const std::optional<std::string>& host) {
    return host ? "“" + *host + "”" : "the server";
}

// {H^}: the same with its first character upper-cased. A quoted host starts with the opening
// quote, which has no upper case, so only "the server" changes.
std::string quotedCapital(const std::optional<std::string>& host) {
    std::string text = quoted(host);
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') {
        text[0] = static_cast<char>(text[0] - 32);
    }
    return text;
}

Message connectionFailed(const std::string& text, const std::optional<std::string>& host) {
    const std::string words = lower(text);
    // Linux words sit beside the original ones: strerror and gai_strerror say "Connection
    // refused", "Name or service not known", "Temporary failure in name resolution",
    // "Network is unreachable", "No route to host"; OpenSSL says "certificate verify failed"
    // behind the transport's "TLS handshake failed: ".
    if (containsAny(words, {"refused"}) ||
        (containsAny(words, {"61"}) && containsAny(words, {"posix"}))) {
        return {"Couldn’t reach " + quoted(host),
                "The connection was refused. Check the server name and port (IMAP over TLS is "
                "usually 993)."};
    }
    if (containsAny(
            words, {"-65554", "nosuchrecord", "nodename", "not known", "dns", "name resolution"})) {
        return {"Couldn’t find " + quoted(host),
                "Check the server name for typos, and that you’re online."};
    }
    if (containsAny(words, {"offline", "not connected", "network is down", "unreachable", "-1009",
                            "no route to host"})) {
        return {"You seem to be offline",
                "Connect to the internet and try again. Your vault is still readable offline."};
    }
    if (containsAny(words, {"-98", "certificate", "tls", "ssl", "handshake"})) {
        return {"A secure connection couldn’t be made",
                quotedCapital(host) + " didn’t offer a valid TLS certificate on this port."};
    }
    return {"Couldn’t connect to " + quoted(host), text};
}

Message commandFailed(const IMAPError& error) {
    const std::string words = lower(error.text());
    if (error.command() == "LOGIN" || error.command() == "AUTHENTICATE" ||
        containsAny(words, {"authenticationfailed", "invalid credentials"})) {
        return {"The password wasn’t accepted",
                "Check the email address and paste a fresh app-specific password — your normal "
                "sign-in password usually won’t work."};
    }
    if (containsAny(words, {"nonexistent", "no such mailbox", "doesn't exist", "does not exist"})) {
        return {"That folder is gone", "It may have been renamed or deleted on the server. "
                                       "Re-check the folders in Settings › Accounts."};
    }
    // "limit" is a plain substring on purpose: it also fires inside longer words.
    if (containsAny(words, {"over quota", "overquota", "throttl", "too many", "limit"})) {
        return {"The server asked us to slow down",
                "Your provider is limiting connections right now. Wait a few minutes, then try "
                "again."};
    }
    return {"The server said no", error.command() + " was refused: " +
                                      (error.text().empty() ? "no reason given" : error.text())};
}

Message imap(const IMAPError& error, const std::optional<std::string>& host) {
    switch (error.kind()) {
    case IMAPError::Kind::connectionFailed:
        return connectionFailed(error.text(), host);
    case IMAPError::Kind::commandFailed:
        return commandFailed(error);
    case IMAPError::Kind::protocolError:
        return {"Unexpected reply from " + quoted(host),
                "Make sure this is an IMAP server on port 993. (" + error.text() + ")"};
    case IMAPError::Kind::timeout:
        return {quotedCapital(host) + " stopped responding",
                "Check your internet connection and try again. Very large folders can take a "
                "while on slow networks."};
    case IMAPError::Kind::closed:
        return {"The connection was closed",
                "The server hung up part-way. Try again — anything already saved stays saved."};
    case IMAPError::Kind::insecureNotAllowed:
        return {"Unencrypted connections aren’t allowed",
                "Quernstead only connects with TLS (port 993)."};
    }
    return {};
}

Message file(const std::system_error& error) {
    if (error.code().category() == std::generic_category() ||
        error.code().category() == std::system_category()) {
        switch (error.code().value()) {
        case ENOSPC:
        case EDQUOT:
            return {"Your disk is full",
                    PlatformWords::adapt(u"Free some space on this Mac (or choose another vault "
                                         u"folder in Settings), then back up again.")
                        .toStdString()};
        case EACCES:
        case EPERM:
        case EROFS:
        case ENOTDIR: // a file stands where the vault or one of its folders should be
            return {"Quernstead can’t write to the vault folder",
                    "Choose a folder you own in Settings › General."};
        default:
            break;
        }
    }
    return {"Something went wrong", error.what()};
}

Message busy(const VaultBusyError& error) {
    return {"The vault is busy",
            (error.holder().empty() ? std::string("Another Quernstead")
                                    : "Another Quernstead (" + error.holder() + ")") +
                " is working on this vault. Wait until it has finished, then try again."};
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Message& message) {
    return out << "{" << message.title << " | " << message.advice << "}";
}

Message describe(const std::exception_ptr& error, const std::optional<std::string>& host) {
    if (!error) {
        return {"Something went wrong", ""};
    }
    try {
        std::rethrow_exception(error);
    } catch (const CancellationError&) {
        return {"Stopped", "Nothing more was changed."};
    } catch (const CleanupError& e) {
        return {"Nothing more was changed", e.description()};
    } catch (const VaultBusyError& e) {
        return busy(e);
    } catch (const IMAPError& e) {
        return imap(e, host);
    } catch (const KeychainError& e) {
        // Without a desktop session (cron, a systemd timer, SSH) there is no keyring to ask;
        // that is not a missing password, and adding the account again wouldn't help.
        return {"The keyring can’t be reached",
                "Passwords are kept in the desktop’s keyring, which isn’t available here (" +
                    std::string(e.what()) +
                    "). Unlock it in a desktop session, or give the account a password command."};
    } catch (const PasswordCommandError& e) {
        return {"The password command failed",
                "“" + e.command() + "” " + e.detail() +
                    ". Check that it prints the password when run by itself."};
    } catch (const std::system_error& e) {
        return file(e);
    } catch (const std::exception& e) {
        return {"Something went wrong", e.what()};
    } catch (...) {
        return {"Something went wrong", ""};
    }
}

} // namespace qs::FriendlyError
