// quernstead-cli: the vault from a terminal, cron or a systemd timer. It drives the same
// application model as the window, on a Qt Core event loop with no display, so every rule and
// every sentence is the same in both.
#include "Commands.h"
#include "model/ProviderPreset.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    CLI::App app{"Quernstead: a permanent, offline copy of your mail", "quernstead-cli"};
    app.require_subcommand(1);
    std::string vault;
    app.add_option("--vault", vault,
                   "The vault folder (else QUERNSTEAD_ARCHIVE_DIR, else the saved setting, else "
                   "Documents/Quernstead)");

    auto* account = app.add_subcommand("account", "Add, list or remove mail accounts");
    account->require_subcommand(1);
    qs::cli::AccountAddOptions add;
    auto* accountAdd = account->add_subcommand("add", "Sign in and add an account");
    accountAdd->add_option("--label", add.label, "Name in the sidebar");
    accountAdd->add_option("--user", add.user, "Email address (login name)")->required();
    std::vector<std::string> providers;
    for (const auto& preset : qs::ProviderPreset::all())
        providers.push_back(preset.id);
    accountAdd
        ->add_option("--provider", add.provider,
                     "gmail, icloud, yahoo, fastmail, outlook, or custom (then --host)")
        ->check(CLI::IsMember(providers))
        ->capture_default_str();
    accountAdd->add_option("--host", add.host, "IMAP server (else the provider's)");
    accountAdd->add_option("--port", add.port, "IMAP port (TLS)")->capture_default_str();
    accountAdd->add_option("--folder", add.folders, "A folder to back up (repeatable)");
    accountAdd->add_flag("--plaintext-local", add.plaintextLocal,
                         "Unencrypted (local test server 127.0.0.1 only)");
    accountAdd->add_flag("--password-stdin", add.passwordStdin,
                         "Read the password from standard input");
    auto* accountList = account->add_subcommand("list", "List the accounts");
    std::string removeLabel;
    auto* accountRemove = account->add_subcommand("remove", "Remove an account (its mail stays)");
    accountRemove->add_option("label", removeLabel, "The account's name")->required();

    std::optional<std::string> backupAccount;
    auto* backup = app.add_subcommand("backup", "Back up every account, or one");
    backup->add_option("--account", backupAccount, "Only this account");

    std::vector<std::string> importPaths;
    auto* import = app.add_subcommand("import", "File .eml and mbox files into the vault");
    import->add_option("files", importPaths, "Files to import")->required();

    auto* reindex = app.add_subcommand("reindex", "Read the vault and bring its index up to date");

    qs::cli::ListOptions search;
    auto* searchCommand = app.add_subcommand("search", "Search the vault, newest first");
    searchCommand->add_option("query", search.query, "What to look for")->required();
    searchCommand->add_option("--limit", search.limit, "At most this many results");
    searchCommand->add_flag("--json", search.json, "Output JSON");

    qs::cli::ListOptions listing;
    auto* listCommand = app.add_subcommand("list", "List messages, newest first");
    listCommand->add_option("--account", listing.account, "One account's messages");
    listCommand->add_option("--folder", listing.folder, "One folder of that account");
    listCommand->add_option("--filter", listing.filter,
                            "recent, attachments, trackers, suspicious or large");
    listCommand->add_option("--limit", listing.limit, "At most this many messages");
    listCommand->add_flag("--json", listing.json, "Output JSON");

    std::string showPath;
    bool showJSON = false;
    auto* show = app.add_subcommand("show", "Show a message with its safety findings");
    show->add_option("path", showPath, "The message file, relative to the vault or not")
        ->required();
    show->add_flag("--json", showJSON, "Output JSON");

    auto* ledger = app.add_subcommand("ledger", "What the backups did, per account and folder");

    qs::cli::FreeUpOptions freeUp;
    auto* freeUpCommand =
        app.add_subcommand("free-up", "Release verified old messages from the server");
    freeUpCommand->add_option("--account", freeUp.account, "The account")->required();
    freeUpCommand->add_option("--mailbox", freeUp.mailbox, "The mailbox (IMAP name)")->required();
    freeUpCommand->add_option("--before", freeUp.before, "Messages before YYYY-MM-DD")->required();
    freeUpCommand->add_option("--confirm", freeUp.confirm,
                              "The confirmation phrase, \"RELEASE n\", instead of the prompt");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        int status = app.exit(error);
        return status == 0 ? 0 : qs::cli::usage;
    }

    // The store reads the vault root from the environment first.
    if (!vault.empty())
        ::setenv("QUERNSTEAD_ARCHIVE_DIR", vault.c_str(), 1);
    QCoreApplication application(argc, argv);
    qs::AppStore store;

    if (*accountAdd)
        return qs::cli::accountAdd(store, add);
    if (*accountList)
        return qs::cli::accountList(store);
    if (*accountRemove)
        return qs::cli::accountRemove(store, removeLabel);
    if (*backup)
        return qs::cli::backup(store, backupAccount);
    if (*import)
        return qs::cli::importFiles(store, importPaths);
    if (*reindex)
        return qs::cli::reindex(store);
    if (*searchCommand)
        return qs::cli::list(store, search);
    if (*listCommand)
        return qs::cli::list(store, listing);
    if (*show)
        return qs::cli::show(store, showPath, showJSON);
    if (*ledger)
        return qs::cli::ledger(store);
    if (*freeUpCommand)
        return qs::cli::freeUp(store, freeUp);
    return qs::cli::usage;
}
