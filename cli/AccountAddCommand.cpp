// account add: sign in, pick the folders, keep the account (or update its twin).
#include "CLIWords.h"
#include "Commands.h"
#include "FolderChoice.h"
#include "Terminal.h"

#include "imap/IMAPClient.h"
#include "model/PasswordCommand.h"
#include "model/ProviderPreset.h"
#include "support/UUID.h"

#include <algorithm>
#include <chrono>
#include <iostream>

namespace qs::cli {

namespace {

/// How long sign-in may stay silent before it counts as a time-out, as in the window.
constexpr std::chrono::seconds signInTimeout{30};

std::optional<std::string> askPassword(const AccountAddOptions& options,
                                       const ProviderPreset& preset, const std::string& host) {
    if (options.passwordCommand) {
        try {
            return PasswordCommand::run(*options.passwordCommand);
        } catch (...) {
            CLIWords::report(CLIWords::describe(std::current_exception(), host));
            return std::nullopt;
        }
    }
    if (!options.passwordStdin && preset.helpURL) {
        // The password asked for is an app password, which few people have at hand.
        notes() << "To make an app password for " << preset.name << ":\n";
        for (size_t i = 0; i < preset.steps.size(); ++i) {
            notes() << "  " << i + 1 << ". " << CLIWords::forTerminal(preset.steps[i]) << "\n";
        }
        notes() << "  " << *preset.helpURL << "\n";
    }
    std::optional<std::string> password =
        options.passwordStdin ? readLine()
                              : readSecret("Password for " + options.user + " at " + host + ": ");
    if (password)
        password = preset.passwordForUse(*password);
    if (!password || password->empty()) {
        std::cerr << "No password given.\n";
        return std::nullopt;
    }
    return password;
}

} // namespace

int accountAdd(AppStore& store, const AccountAddOptions& options) {
    const ProviderPreset& preset = ProviderPreset::named(options.provider);
    const std::string host = options.host.empty() ? preset.host : options.host;
    if (host.empty()) {
        std::cerr << "Name the IMAP server with --host, or pick a provider with --provider.\n";
        return usage;
    }
    if (options.plaintextLocal && host != "127.0.0.1") {
        // Refused before a password is asked or a byte is sent.
        std::cerr << "--plaintext-local is only for a test server on 127.0.0.1; “" << host
                  << "” is reached over TLS.\n";
        return usage;
    }
    std::optional<std::string> password = askPassword(options, preset, host);
    if (!password)
        return options.passwordCommand ? failed : usage;

    IMAPServer server{host, options.port, options.plaintextLocal};
    std::vector<IMAPMailbox> mailboxes;
    notes() << "Signing in to " << host << "…\n";
    try {
        IMAPClient client(server, signInTimeout);
        client.connect();
        client.login(options.user, *password);
        mailboxes = client.list();
        client.logout();
    } catch (...) {
        CLIWords::report(CLIWords::describe(std::current_exception(), host));
        return failed;
    }

    // The same user on the same server is the same account: it is updated, never twinned, as
    // the two would share one stored password.
    auto twin = std::ranges::find_if(store.accounts(), [&](const MailAccount& a) {
        return a.username == options.user && a.server.host == host && a.server.port == options.port;
    });
    bool updating = twin != store.accounts().end();
    MailAccount account;
    if (updating) {
        account = *twin;
    } else {
        account.id = UUID::random();
        account.provider = preset.id;
        // Without a name: the provider's, or for another server its host name.
        account.label = preset.id == "custom" ? host : preset.name;
    }
    if (!options.label.empty())
        account.label = options.label;
    account.username = options.user;
    account.server = server;
    account.knownFolders = mailboxes;
    account.passwordCommand = options.passwordCommand;
    if (!options.folders.empty()) {
        auto chosen = chooseFolders(mailboxes, options.folders);
        if (!chosen)
            return failed;
        account.folders = std::move(*chosen);
    } else if (!updating) {
        account.folders = defaultFolders(mailboxes, account.provider);
    }
    if (account.folders.empty()) {
        std::cerr << "The server lists no folder to back up.\n";
        return failed;
    }
    try {
        store.addAccount(account, *password);
    } catch (...) {
        CLIWords::report(CLIWords::describe(std::current_exception(), host));
        return failed;
    }
    std::cout << (updating ? "Updated " : "Added ") << account.label << " · "
              << account.folders.size() << " of " << plural(int64_t(mailboxes.size()), "folder")
              << ":";
    for (const std::string& name : account.folders)
        std::cout << " " << displayNameOf(mailboxes, name);
    std::cout << "\n";
    if (preset.note && !updating)
        std::cout << *preset.note << "\n";
    return ok;
}

} // namespace qs::cli
