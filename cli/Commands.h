#pragma once

#include "model/AppStore.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace qs::cli {

/// Exit statuses: success, something failed (said on standard error), a usage error.
enum Exit : int { ok = 0, failed = 1, usage = 2 };

struct AccountAddOptions {
    std::string label;
    std::string user;
    /// A provider preset's id; its server stands in for an empty `host`.
    std::string provider = "custom";
    std::string host;
    uint16_t port = 993;
    std::vector<std::string> folders;
    bool plaintextLocal = false;
    bool passwordStdin = false;
    /// Run for the password at every sign-in instead of storing one.
    std::optional<std::string> passwordCommand;
};

struct AccountEditOptions {
    std::vector<std::string> folders; ///< empty: unchanged
    std::optional<std::string> passwordCommand;
};

struct ListOptions {
    std::optional<std::string> query;
    std::optional<std::string> account;
    std::optional<std::string> folder;
    std::optional<std::string> filter;
    size_t limit = 0; ///< 0: no limit
    bool json = false;
};

struct FreeUpOptions {
    std::string account;
    std::string mailbox;
    std::string before;
    std::optional<std::string> confirm;
};

// Each command works on the store's vault and returns its exit status.
int accountAdd(AppStore& store, const AccountAddOptions& options);
int accountList(AppStore& store);
int accountRemove(AppStore& store, const std::string& label);
int accountFolders(AppStore& store, const std::string& label);
int accountEdit(AppStore& store, const std::string& label, const AccountEditOptions& options);
int backup(AppStore& store, const std::optional<std::string>& label);
int importFiles(AppStore& store, const std::vector<std::string>& files);
int reindex(AppStore& store);
int list(AppStore& store, const ListOptions& options);
/// Refuses words that look like operators the search doesn't have, then lists the matches.
int search(AppStore& store, const std::vector<std::string>& words, ListOptions options);
int show(AppStore& store, const std::string& path, bool json);
int ledger(AppStore& store);
int freeUp(AppStore& store, const FreeUpOptions& options);
/// Exit 1 when a recorded file is missing or differs.
int verify(AppStore& store, const std::optional<std::string>& label);

/// Reads the vault's records (a scan of the index and the files), quietly.
void loadArchive(AppStore& store);
/// The account with this label, or nothing (and a line on standard error naming the known
/// ones).
std::optional<MailAccount> accountLabelled(const AppStore& store, const std::string& label);
/// Bytes as people read them ("1.2 MB").
std::string bytes(int64_t count);
/// "{n} {noun}", with an "s" unless n is exactly 1, the count in the locale's grouping.
std::string plural(int64_t n, const std::string& noun);
/// The names in `names`, joined by ", ", or "none".
std::string listed(const std::vector<std::string>& names);

} // namespace qs::cli
