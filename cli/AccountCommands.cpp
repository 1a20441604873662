// account list / remove / folders / edit.
#include "CLIWords.h"
#include "Commands.h"
#include "FolderChoice.h"
#include "Terminal.h"

#include "imap/IMAPClient.h"
#include "model/Credentials.h"
#include "model/Fmt.h"
#include "model/PasswordCommand.h"
#include "model/VaultFiles.h"

#include <QLocale>
#include <algorithm>
#include <chrono>
#include <iostream>

namespace qs::cli {

namespace {

/// How long a folder listing may stay silent before it counts as a time-out.
constexpr std::chrono::seconds listTimeout{30};

void printFolders(const MailAccount& account) {
    std::cout << account.label << " · " << account.folders.size() << " of "
              << plural(int64_t(account.knownFolders.size()), "folder") << ":";
    for (const std::string& name : account.folders)
        std::cout << " " << displayNameOf(account.knownFolders, name);
    std::cout << "\n";
}

} // namespace

std::string bytes(int64_t count) {
    return QLocale().formattedDataSize(count, 1, QLocale::DataSizeSIFormat).toStdString();
}

std::string plural(int64_t n, const std::string& noun) {
    return QLocale().toString(qlonglong(n)).toStdString() + " " + noun + (n == 1 ? "" : "s");
}

std::string listed(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text.empty() ? "none" : text;
}

std::optional<MailAccount> accountLabelled(const AppStore& store, const std::string& label) {
    std::vector<std::string> labels;
    for (const MailAccount& account : store.accounts()) {
        if (account.label == label)
            return account;
        labels.push_back(account.label);
    }
    std::cerr << "No account named “" << label << "”. The accounts: " << listed(labels) << ".\n";
    return std::nullopt;
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
        for (const std::string& name : account.folders)
            std::cout << " " << displayNameOf(account.knownFolders, name);
        if (account.passwordCommand)
            std::cout << "\n  password from: " << *account.passwordCommand;
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

int accountFolders(AppStore& store, const std::string& label) {
    auto account = accountLabelled(store, label);
    if (!account)
        return failed;
    const std::string& host = account->server.host;
    try {
        auto password = Credentials::password(*account);
        if (!password) {
            CLIWords::report({"No saved password", "Remove the account and add it again with a "
                                                   "fresh app-specific password."});
            return failed;
        }
        notes() << "Signing in to " << host << "…\n";
        IMAPClient client(account->server, listTimeout);
        client.connect();
        client.login(account->username, *password);
        account->knownFolders = client.list();
        client.logout();
    } catch (...) {
        CLIWords::report(CLIWords::describe(std::current_exception(), host));
        return failed;
    }
    // What the server lists now is what `edit --folder` chooses from.
    store.updateAccount(*account);
    for (const IMAPMailbox& mailbox : account->knownFolders) {
        bool chosen = std::ranges::find(account->folders, mailbox.name) != account->folders.end();
        auto role = mailboxRole(mailbox);
        std::cout << (chosen ? "✓ " : "  ") << mailbox.displayName << (role ? " · " + *role : "")
                  << "\n";
    }
    std::cout << account->folders.size() << " of "
              << plural(int64_t(account->knownFolders.size()), "folder") << " chosen\n";
    return ok;
}

int accountEdit(AppStore& store, const std::string& label, const AccountEditOptions& options) {
    auto account = accountLabelled(store, label);
    if (!account)
        return failed;
    if (!options.folders.empty()) {
        auto chosen = chooseFolders(account->knownFolders, options.folders);
        if (!chosen)
            return failed;
        account->folders = std::move(*chosen);
    }
    if (options.passwordCommand) {
        // Tried now, so that a command that can't give the password isn't found out by the
        // next scheduled backup.
        try {
            PasswordCommand::run(*options.passwordCommand);
        } catch (...) {
            CLIWords::report(CLIWords::describe(std::current_exception(), account->server.host));
            return failed;
        }
        account->passwordCommand = options.passwordCommand;
    }
    auto next = store.accounts();
    std::ranges::replace_if(
        next, [&](const MailAccount& a) { return a.id == account->id; }, *account);
    try {
        VaultFiles::writeAccounts(store.layout(), next);
    } catch (...) {
        CLIWords::report(CLIWords::describe(std::current_exception()));
        return failed;
    }
    store.updateAccount(*account);
    if (options.passwordCommand) {
        // The command takes the place of a stored password, which would only go stale.
        Credentials::remove(*account);
    }
    printFolders(*account);
    return ok;
}

} // namespace qs::cli
