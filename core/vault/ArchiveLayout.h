#pragma once

#include "support/Date.h"
#include "vault/AccountSyncState.h"
#include "vault/MailAccount.h"

#include <filesystem>
#include <iosfwd>
#include <string>
#include <string_view>

namespace qs {

/// Where everything of a vault lives, and the safe writing of message files. A plain value:
/// one field, the vault root. Paths in records are relative to `root`, so a vault can be
/// moved whole. (The default root, the user's Documents folder, is chosen by the app layer.)
struct ArchiveLayout {
    std::filesystem::path root;

    /// Whether `write` flushes each message file to the disk before returning.
    enum class Durability {
        /// The file is on the disk when `write` returns.
        flushed,
        /// The caller makes the batch durable with one AtomicFile::syncFileSystem(root) before
        /// it records the files anywhere (a backup batch); much cheaper than a flush per file.
        deferred,
    };

    /// The folder name of the vault's own records below the root.
    static constexpr std::string_view metaDirectoryName = ".quernstead";

    /// root/.quernstead
    std::filesystem::path metaDirectory() const;
    std::filesystem::path indexURL() const;
    std::filesystem::path accountsURL() const;
    std::filesystem::path filtersURL() const;
    /// .quernstead/sync-{UUID}.json, the UUID being the account's id in canonical upper case.
    std::filesystem::path syncURL(const MailAccount& account) const;

    /// Creates the meta directory with intermediate folders: all the setting-up a vault needs.
    /// Throws std::system_error (the platform's error).
    void ensure() const;

    /// The account's sync state; an empty state for a missing, unreadable or damaged file,
    /// never an error.
    AccountSyncState loadSync(const MailAccount& account) const;

    /// `ensure()`, then replaces the sync file atomically (flushed before the rename), so a
    /// reader sees the old state or the new one. Throws std::system_error; the old file is
    /// then untouched.
    void saveSync(const AccountSyncState& state, const MailAccount& account) const;

    /// root joined with a vault-relative path, which may come from a damaged or hostile record:
    /// empty, "." and ".." segments are dropped (a leading slash too), so the result is always
    /// below the root, "../x" naming root/x.
    std::filesystem::path url(std::string_view relative) const;

    /// Whether `path`, once its symbolic links are followed, is the root or below it: a link
    /// in the vault that leads out of it is refused by whatever writes or removes files.
    bool contains(const std::filesystem::path& path) const;

    /// Files a message at `relative` (which ends in ".eml") and returns the relative path
    /// actually used. Never overwrites and never duplicates: a file already there with exactly
    /// these bytes is the message itself and nothing is written; a different file pushes the
    /// message to "{name} (2).eml", "{name} (3).eml", … (each try made from `relative`), the
    /// first that is free or identical. A new file is written atomically and its modification
    /// time set to `date` (a failure of that last step is ignored).
    /// Throws std::system_error when the folder can't be made or the file can't be written,
    /// or (permission_denied) when a symbolic link would take the file out of the vault;
    /// nothing half-written is left behind.
    std::string write(std::string_view data, std::string_view relative, Date date,
                      Durability durability = Durability::flushed) const;

    friend bool operator==(const ArchiveLayout&, const ArchiveLayout&) = default;
};

std::ostream& operator<<(std::ostream& out, const ArchiveLayout& layout);

} // namespace qs
