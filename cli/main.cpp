// quernstead-cli: the vault from a terminal, cron or a systemd timer. It drives the same
// application model as the window, on a Qt Core event loop with no display, so every rule and
// every sentence is the same in both.
#include "Commands.h"
#include "Terminal.h"
#include "model/ProviderPreset.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <cstdlib>
#include <iostream>

namespace {

/// The first word that names no command where a command is due, if any. CLI11 alone would
/// only say that a command is required.
std::optional<std::string> unknownCommand(const CLI::App& app, int argc, char** argv) {
    const CLI::App* level = &app;
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        if (word == "--")
            return std::nullopt;
        if (word.starts_with("-")) {
            // The one option taken anywhere before the command words that has a value.
            if (word == "--vault")
                ++i;
            continue;
        }
        if (level->get_subcommands({}).empty())
            return std::nullopt;
        const CLI::App* next = nullptr;
        for (const CLI::App* command : level->get_subcommands({})) {
            if (command->get_name() == word)
                next = command;
        }
        if (!next)
            return word;
        level = next;
    }
    return std::nullopt;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Quernstead: a permanent, offline copy of your mail", "quernstead-cli"};
    app.require_subcommand(1);
    // `backup --quiet` as well as `--quiet backup`: both are written in crontabs.
    app.fallthrough();
    app.set_version_flag("--version", "quernstead-cli " QS_VERSION);
    std::string vault;
    app.add_option("--vault", vault,
                   "The vault folder (else QUERNSTEAD_ARCHIVE_DIR, else the saved setting, else "
                   "Documents/Quernstead)");
    bool quiet = false;
    app.add_flag("--quiet,-q", quiet, "Errors only (for cron and timers)");

    auto* account = app.add_subcommand("account", "Add, list, change or remove mail accounts");
    account->require_subcommand(1);
    qs::cli::AccountAddOptions add;
    auto* accountAdd = account->add_subcommand(
        "add", "Sign in and add an account; the same user, server and port updates it");
    accountAdd->add_option("--label", add.label, "The account's name (and its vault folder)");
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
    accountAdd->add_option("--folder", add.folders,
                           "A folder to back up, by its name as listed (repeatable)");
    accountAdd->add_flag("--plaintext-local", add.plaintextLocal,
                         "Unencrypted (local test server 127.0.0.1 only)");
    accountAdd->add_flag("--password-stdin", add.passwordStdin,
                         "Read the password from standard input");
    accountAdd->add_option("--password-command", add.passwordCommand,
                           "Run this for the password at each sign-in (first line of its "
                           "output; no shell) instead of keeping it in the keyring");
    auto* accountList = account->add_subcommand("list", "List the accounts");
    std::string accountLabel;
    auto* accountRemove = account->add_subcommand("remove", "Remove an account (its mail stays)");
    accountRemove->add_option("label", accountLabel, "The account's name")->required();
    auto* accountFolders = account->add_subcommand(
        "folders", "List the server's folders, their roles and which are backed up");
    accountFolders->add_option("label", accountLabel, "The account's name")->required();
    qs::cli::AccountEditOptions edit;
    auto* accountEdit = account->add_subcommand("edit", "Change an account's folders or password "
                                                        "command");
    accountEdit->add_option("label", accountLabel, "The account's name")->required();
    accountEdit->add_option("--folder", edit.folders,
                            "The folders to back up, replacing the chosen ones (repeatable)");
    accountEdit->add_option("--password-command", edit.passwordCommand,
                            "Run this for the password at each sign-in");

    std::optional<std::string> backupAccount;
    auto* backup = app.add_subcommand(
        "backup", "Back up every account, or one; Ctrl-C or SIGTERM stops after the current batch");
    backup->add_option("--account", backupAccount, "Only this account");

    std::vector<std::string> importPaths;
    auto* import = app.add_subcommand("import", "File .eml and mbox files into the vault");
    import->add_option("files", importPaths, "Files to import")->required();

    auto* reindex = app.add_subcommand("reindex", "Read the vault and bring its index up to date");

    qs::cli::ListOptions search;
    std::vector<std::string> searchWords;
    auto* searchCommand = app.add_subcommand(
        "search", "Search the vault, newest first. Every word must match as the start of a word "
                  "(case and accents ignored); there are no other operators");
    searchCommand->add_option("words", searchWords, "What to look for")->required();
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

    std::optional<std::string> verifyAccount;
    auto* verify = app.add_subcommand(
        "verify", "Check the vault's files against what the backups recorded, offline");
    verify->add_option("--account", verifyAccount, "Only this account");

    qs::cli::FreeUpOptions freeUp;
    auto* freeUpCommand =
        app.add_subcommand("free-up", "Release verified old messages from the server");
    freeUpCommand->add_option("--account", freeUp.account, "The account")->required();
    freeUpCommand->add_option("--mailbox", freeUp.mailbox, "The folder, by its name as listed")
        ->required();
    freeUpCommand->add_option("--before", freeUp.before, "Messages before YYYY-MM-DD")->required();
    freeUpCommand->add_option("--confirm", freeUp.confirm,
                              "The confirmation phrase, \"RELEASE n\", instead of the prompt");

    if (auto word = unknownCommand(app, argc, argv)) {
        std::cerr << "quernstead-cli: unknown command ‘" << *word
                  << "’. Run quernstead-cli --help for the commands.\n";
        return qs::cli::usage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        int status = app.exit(error);
        return status == 0 ? 0 : qs::cli::usage;
    }
    if (quiet)
        qs::cli::beQuiet();

    // The store reads the vault root from the environment first.
    if (!vault.empty())
        ::setenv("QUERNSTEAD_ARCHIVE_DIR", vault.c_str(), 1);
    QCoreApplication application(argc, argv);
    qs::AppStore store;
    // Every command that reads the vault waits for the scan's end before printing.
    store.setListFromCacheFirst(false);

    if (*accountAdd)
        return qs::cli::accountAdd(store, add);
    if (*accountList)
        return qs::cli::accountList(store);
    if (*accountRemove)
        return qs::cli::accountRemove(store, accountLabel);
    if (*accountFolders)
        return qs::cli::accountFolders(store, accountLabel);
    if (*accountEdit)
        return qs::cli::accountEdit(store, accountLabel, edit);
    if (*backup)
        return qs::cli::backup(store, backupAccount);
    if (*import)
        return qs::cli::importFiles(store, importPaths);
    if (*reindex)
        return qs::cli::reindex(store);
    if (*searchCommand)
        return qs::cli::search(store, searchWords, search);
    if (*listCommand)
        return qs::cli::list(store, listing);
    if (*show)
        return qs::cli::show(store, showPath, showJSON);
    if (*ledger)
        return qs::cli::ledger(store);
    if (*verify)
        return qs::cli::verify(store, verifyAccount);
    if (*freeUpCommand)
        return qs::cli::freeUp(store, freeUp);
    return qs::cli::usage;
}
