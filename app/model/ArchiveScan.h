#pragma once

#include "search/SearchIndex.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

/// The reconciliation of the search index with the message files on disk: the background half
/// of `AppStore::reloadArchive`, kept free of the store so that it runs on any thread and can
/// be driven alone. It works on an index of its own; nothing in it is shared.
namespace qs::ArchiveScan {

/// A record is read again only when its file's modification time moved by strictly more
/// than this many seconds: copies and coarse file systems jitter timestamps by up to a second.
inline constexpr double mtimeTolerance = 1.0;
/// Records are handed out every this many files read, so that a large first scan fills the
/// list as it goes without flooding the main thread.
inline constexpr size_t publishEvery = 50;

/// Every ".eml" file (extension compared lower-cased) below `root`, by its root-relative,
/// "/"-separated path, with its modification time in seconds since 1970 (0 when unknown).
/// Hidden entries (a leading ".") are skipped, so the vault's own ".quernstead" folder is
/// never entered; linked folders aren't followed; unreadable entries are passed over.
std::map<std::string, double> walk(const std::filesystem::path& root);

/// What a scan reports while it runs. Both are called on the scanning thread.
struct Hooks {
    /// Once, with the index as loaded, before the walk of the files: what the vault held at
    /// its last save, to be read during the call only (its records can be shared).
    std::function<void(const SearchIndex& index)> loaded;
    /// Once, with the number of files that need reading (0 when none do).
    std::function<void(size_t total)> started;
    /// After every `publishEvery` files read: files done, the total, and the scan's index as
    /// it stands, to be read during the call only (its live records are what a publication
    /// shows; copying them all each time is left to the hook to decide).
    std::function<void(size_t done, size_t total, const SearchIndex& index)> progress;
};

struct Result {
    SearchIndex index;
    /// Whether a record was added or removed (and so the index file rewritten).
    bool changed = false;
    /// Message files read in full.
    size_t filesRead = 0;
};

/// Loads the index at `indexFile` (through its search cache when that is fresh), drops the records
/// whose files are gone, reads the new and changed files in ascending path order, and when anything
/// changed compacts (when dead slots call for it) and saves the index with its search cache,
/// ignoring a failed save; an unchanged index gets its cache written when that is missing or
/// stale. An unreadable file is left out and tried again next time. Nothing when `stop` was
/// requested: checked once per file, and a cancelled scan saves nothing.
std::optional<Result> run(const std::filesystem::path& root, const std::filesystem::path& indexFile,
                          std::stop_token stop, const Hooks& hooks = {});

} // namespace qs::ArchiveScan
