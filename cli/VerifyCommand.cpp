// verify: the vault's files against what the backups recorded, without the server.
#include "Commands.h"
#include "TerminalText.h"

#include "backup/FolderHealth.h"

#include <iostream>

namespace qs::cli {

namespace {

std::string displayName(const MailAccount& account, const std::string& mailbox) {
    for (const IMAPMailbox& known : account.knownFolders) {
        if (known.name == mailbox)
            return known.displayName;
    }
    return mailbox;
}

void listPaths(const std::string& what, const std::map<std::uint32_t, std::string>& paths) {
    for (const auto& [uid, path] : paths)
        std::cout << "  " << what << ": " << terminalText(path) << "\n";
}

} // namespace

int verify(AppStore& store, const std::optional<std::string>& label) {
    std::vector<MailAccount> accounts = store.accounts();
    if (label) {
        auto only = accountLabelled(store, *label);
        if (!only)
            return failed;
        accounts = {*only};
    }
    int64_t verified = 0;
    int64_t missing = 0;
    int64_t differing = 0;
    for (const MailAccount& account : accounts) {
        for (const auto& [mailbox, state] : store.layout().loadSync(account).folders) {
            auto health = FolderHealth::check(store.layout(), state);
            verified += health.verified;
            missing += static_cast<int64_t>(health.missing.size());
            differing += static_cast<int64_t>(health.differing.size());
            std::cout << terminalText(account.label + " › " + displayName(account, mailbox))
                      << " · " << health.verified << " verified · " << health.missing.size()
                      << " missing · " << health.differing.size() << " differing · "
                      << health.setAside.size() << " set aside\n";
            listPaths("missing", health.missing);
            listPaths("differs", health.differing);
            for (const auto& path : health.setAside)
                std::cout << "  set aside: " << terminalText(path) << "\n";
        }
    }
    if (missing + differing == 0) {
        std::cout << "All " << plural(verified, "message") << " verified\n";
        return ok;
    }
    std::cout << plural(missing, "file") << " missing, " << differing
              << " differing. The next backup fetches them again and keeps the changed ones "
                 "in "
              << ArchiveLayout::metaDirectoryName << "/" << FolderHealth::setAsideDirectoryName
              << ".\n";
    return failed;
}

} // namespace qs::cli
