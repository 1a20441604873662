#pragma once

#include "search/MessageRecord.h"
#include "search/SearchCacheLayout.h"
#include "search/SearchIndex.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace qs {

struct SearchCacheDelta;

/// A derived, disposable copy of index.json made for searching from a cold start: the sorted
/// tokens with their postings and the records, in a fixed binary layout that is mapped, not
/// read, so that one search touches only the pages it needs. It records the size, time and
/// inode of the index.json it came from and counts as missing once that file changes.
///
/// Every offset and length is checked before use and every page against its checksum on first
/// touch: a damaged cache makes a call return nothing, never crash or answer wrongly, and the
/// caller rebuilds it from index.json. Not safe for concurrent use (pages are marked verified
/// as they are read).
class SearchCache {
public:
    /// What a search found: the number of matches and the first of them, newest first.
    struct Answer {
        size_t found = 0;
        std::vector<MessageRecord> shown;
    };

    ~SearchCache();
    SearchCache(SearchCache&&) noexcept;
    SearchCache& operator=(SearchCache&&) noexcept;

    /// Where the cache of the index.json at `json` lives: beside it.
    static std::filesystem::path beside(const std::filesystem::path& json) {
        return json.parent_path() / "index.cache";
    }

    /// The cache at `cache` when it was derived from the index.json now at `json`, or from an
    /// earlier one with a delta beside it that brings it up to `json`, and its header and
    /// page table are whole; nothing otherwise. Never throws.
    static std::optional<SearchCache> open(const std::filesystem::path& cache,
                                           const std::filesystem::path& json) noexcept;

    /// Writes the cache of `index` to `cache` atomically, stamped as derived from a file with
    /// `json`'s identity. Throws std::system_error.
    static void write(const SearchIndex& index, const std::filesystem::path& cache,
                      const SearchCacheLayout::FileStamp& json);

    /// Saves `index` to `json` as `SearchIndex::save` does and writes its cache beside it, the
    /// two at once on two threads; the cache is stamped once index.json is in place, and not
    /// kept when the save fails. Throws what the save throws; a failed cache write is left
    /// to the next reader to rebuild.
    static void save(SearchIndex& index, const std::filesystem::path& json);

    /// Loads index.json and writes its cache, stamped with the identity the JSON file had
    /// before the load (a save racing the load leaves the cache stale, not wrong).
    /// Throws std::system_error when index.json can't be read or the cache can't be written.
    static void rebuild(const std::filesystem::path& cache, const std::filesystem::path& json);

    /// Searches the cache at `cache` for index.json `json`, rebuilding it first when it is
    /// missing, stale or found damaged on the way. `limit` caps the records returned (0: all).
    /// Nothing when no sound cache could be had (index.json missing, unwritable folder).
    static std::optional<Answer> answer(const std::filesystem::path& cache,
                                        const std::filesystem::path& json, std::string_view query,
                                        size_t limit) noexcept;

    /// What `answer` finds: the matches of every word of `query` as a prefix, the same as
    /// `SearchIndex::search` finds, and the first `limit` of them (0: all), newest first.
    /// Nothing when damaged.
    std::optional<Answer> find(std::string_view query, size_t limit) const noexcept;

    /// Ranks (positions newest first) in the cache file of its records that match every word
    /// of `query` as a prefix, ascending, less those a delta removed; the delta's own records
    /// are not among them (`find` has all). Nothing when damaged.
    std::optional<std::vector<uint32_t>> search(std::string_view query) const noexcept;

    /// The record of a rank of the cache file, or nothing when damaged or out of range.
    std::optional<MessageRecord> record(uint32_t rank) const noexcept;

    /// The whole index the cache was derived from, built without parsing index.json: the
    /// same live records under the same ids, the same tokens and, for live records, the
    /// same postings. Nothing when damaged.
    std::optional<SearchIndex> index() const noexcept;

    /// The index of the index.json at `json`: from the cache at `cache` when that is fresh
    /// and sound, else as `SearchIndex::load` reads it. Leaves the cache as it is.
    static SearchIndex loadIndex(const std::filesystem::path& cache,
                                 const std::filesystem::path& json) noexcept;

    /// Every record, newest first (the order of the window's list), or nothing when damaged.
    std::optional<std::vector<MessageRecord>> records() const;

    /// Number of live records.
    size_t count() const;

private:
    struct Mapping;
    SearchCache(std::unique_ptr<Mapping> mapping, std::unique_ptr<SearchCacheDelta> delta);

    /// Adds the delta's slots and postings to `index`, built from the cache file.
    /// Throws when damaged.
    static void applyDelta(const SearchCacheDelta& delta, SearchIndex& index);

    /// The file's records of `ranks` and the delta's `added` (each newest first) in one list,
    /// newest first, at most `limit` (0: all). Throws when damaged.
    std::vector<MessageRecord> merged(const std::vector<uint32_t>& ranks,
                                      const std::vector<const MessageRecord*>& added,
                                      size_t limit) const;

    /// `write`, with the stamp asked for once the rest is written; nothing is kept when
    /// there is none. Returns what an index saved with the cache remembers of it.
    static std::optional<SearchCacheLayout::Base>
    writeStamped(const SearchIndex& index, const std::filesystem::path& cache,
                 const std::function<std::optional<SearchCacheLayout::FileStamp>()>& stampAtEnd);

    std::unique_ptr<Mapping> mapping_;
    std::unique_ptr<SearchCacheDelta> delta_;
};

} // namespace qs
