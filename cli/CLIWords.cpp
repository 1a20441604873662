#include "CLIWords.h"

#include <array>
#include <iostream>
#include <string_view>
#include <utility>

namespace qs::cli::CLIWords {

namespace {

// Longest first where one holds another.
constexpr std::array<std::pair<std::string_view, std::string_view>, 7> replacements{{
    {"Choose a folder you own in Settings › General.", "Choose a folder you own with --vault DIR."},
    {"(or choose another vault folder in Settings)",
     "(or choose another vault folder with --vault)"},
    {"Re-check the folders in Settings › Accounts.",
     "Re-check the folders with “quernstead-cli account folders NAME”."},
    {"Remove the account and add it again with a fresh app-specific password.",
     "Run “quernstead-cli account add” again with the same user and server and a fresh "
     "app-specific password; it updates the account."},
    {"Remove the account and add it again.",
     "Run “quernstead-cli account add” again with the same user and server; it updates the "
     "account."},
    {"(or use the button below)", "(or open the address below)"},
    {"or give the account a password command.",
     "or give the account a password command with “quernstead-cli account edit NAME "
     "--password-command …” (see “Scheduled backups” in the README)."},
}};

} // namespace

std::string forTerminal(std::string text) {
    for (const auto& [window, terminal] : replacements) {
        for (size_t at = text.find(window); at != std::string::npos;
             at = text.find(window, at + terminal.size())) {
            text.replace(at, window.size(), terminal);
        }
    }
    return text;
}

FriendlyError::Message describe(const std::exception_ptr& error,
                                const std::optional<std::string>& host) {
    FriendlyError::Message message = FriendlyError::describe(error, host);
    message.title = forTerminal(message.title);
    message.advice = forTerminal(message.advice);
    if (message.title == "A secure connection couldn’t be made") {
        // Most often a private server whose certificate authority this machine doesn't know.
        message.advice += " If it uses a certificate authority of its own, point SSL_CERT_FILE "
                          "at that authority’s certificate.";
    }
    return message;
}

void report(const FriendlyError::Message& message, const std::string& prefix) {
    std::cerr << prefix << forTerminal(message.text()) << "\n";
}

} // namespace qs::cli::CLIWords
