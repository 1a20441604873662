// account add / list / remove.
#include "Commands.h"
#include "FolderChoice.h"
#include "Terminal.h"

#include "imap/IMAPClient.h"
#include "model/Fmt.h"
#include "model/FriendlyError.h"
#include "model/ProviderPreset.h"
#include "support/UUID.h"

#include <QLocale>
#include <algorithm>
#include <chrono>
#include <iostream>

namespace qs::cli {

namespace {

/// How long sign-in may stay silent before it counts as a time-out, as in the window.
constexpr std::chrono::seconds signInTimeout{30};

std::string displayNameOf(const MailAccount& account, const std::string& name) {
    for (const IMAPMailbox& mailbox : account.knownFolders) {
        if (mailbox.name == name)
            return mailbox.displayName;
    }
    return name;
}

} // namespace

std::string bytes(int64_t count) {
    return QLocale().formattedDataSize(count, 1, QLocale::DataSizeSIFormat).toStdString();
}

std::optional<MailAccount> accountLabelled(const AppStore& store, const std::string& label) {
    for (const MailAccount& account : store.accounts()) {
        if (account.label == label)
            return account;
    }
    std::cerr << "No account named “" << label << "”.\n";
    return std::nullopt;
}

int accountAdd(AppStore& store, const AccountAddOptions& options) {
    const ProviderPreset& preset = ProviderPreset::named(options.provider);
    const std::string host = options.host.empty() ? preset.host : options.host;
    if (host.empty()) {
        std::cerr << "Name the IMAP server with --host, or pick a provider with --provider.\n";
        return usage;
    }
    if (!options.passwordStdin && preset.helpURL) {
        // The password asked for is an app password, which few people have at hand.
        std::cerr << "To make an app password for " << preset.name << ":\n";
        for (size_t i = 0; i < preset.steps.size(); ++i) {
            std::cerr << "  " << i + 1 << ". " << preset.steps[i] << "\n";
        }
        std::cerr << "  " << *preset.helpURL << "\n";
    }
    std::optional<std::string> password =
        options.passwordStdin ? readLine()
                              : readSecret("Password for " + options.user + " at " + host + ": ");
    if (password) {
        password = preset.passwordForUse(*password);
    }
    if (!password || password->empty()) {
        std::cerr << "No password given.\n";
        return usage;
    }
    IMAPServer server{host, options.port, options.plaintextLocal && host == "127.0.0.1"};
    std::vector<IMAPMailbox> mailboxes;
    std::cerr << "Signing in to " << host << "…\n";
    try {
        IMAPClient client(server, signInTimeout);
        client.connect();
        client.login(options.user, *password);
        mailboxes = client.list();
        client.logout();
    } catch (...) {
        std::cerr << FriendlyError::describe(std::current_exception(), host).text() << "\n";
        return failed;
    }

    MailAccount account;
    account.id = UUID::random();
    // Without a name: the provider's, or for another server its host name.
    account.label = !options.label.empty()  ? options.label
                    : preset.id == "custom" ? host
                                            : preset.name;
    account.username = options.user;
    account.server = server;
    account.provider = preset.id;
    account.knownFolders = mailboxes;
    if (options.folders.empty()) {
        account.folders = defaultFolders(mailboxes, account.provider);
    } else {
        // A folder may be named as the server spells it or as people read it.
        for (const std::string& wanted : options.folders) {
            auto found = std::find_if(mailboxes.begin(), mailboxes.end(), [&](const auto& m) {
                return m.name == wanted || m.displayName == wanted;
            });
            if (found == mailboxes.end()) {
                std::cerr << "The server has no folder named “" << wanted << "”.\n";
                return failed;
            }
            account.folders.push_back(found->name);
        }
    }
    if (account.folders.empty()) {
        std::cerr << "The server lists no folder to back up.\n";
        return failed;
    }
    try {
        store.addAccount(account, *password);
    } catch (...) {
        auto message = FriendlyError::describe(std::current_exception(), host);
        std::cerr << "Couldn’t save the password. " << message.advice << "\n";
        return failed;
    }
    std::cout << "Added " << account.label << " · " << account.folders.size() << " of "
              << mailboxes.size() << " folders:";
    for (const std::string& name : account.folders) {
        std::cout << " " << displayNameOf(account, name);
    }
    std::cout << "\n";
    if (preset.note) {
        std::cout << *preset.note << "\n";
    }
    return ok;
}

int accountList(AppStore& store) {
    if (store.accounts().empty()) {
        std::cout << "No accounts yet\n";
        return ok;
    }
    for (const MailAccount& account : store.accounts()) {
        std::cout << account.label << "\n  " << account.username << " · " << account.server.host
                  << ":" << account.server.port
                  << (account.server.plaintextLocalDev ? " (unencrypted)" : "") << "\n  folders:";
        for (const std::string& name : account.folders) {
            std::cout << " " << displayNameOf(account, name);
        }
        std::cout << "\n  "
                  << (account.lastBackup ? "checked " + Fmt::ago(*account.lastBackup).toStdString()
                                         : std::string("never backed up"))
                  << "\n";
    }
    return ok;
}

int accountRemove(AppStore& store, const std::string& label) {
    auto account = accountLabelled(store, label);
    if (!account)
        return failed;
    store.removeAccount(*account);
    if (store.toast())
        std::cout << store.toast()->text.toStdString() << "\n";
    return ok;
}

} // namespace qs::cli
