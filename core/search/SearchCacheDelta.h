#pragma once

#include "search/SearchCacheLayout.h"
#include "search/SearchIndex.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace qs {

/// What index.json gained and lost since its search cache was written, kept beside the cache
/// as "index.delta": a save of a few new messages writes this instead of the whole cache.
/// A reader that finds the cache made from an older index.json takes the delta when it names
/// both that cache and the current index.json; otherwise the cache counts as stale.
struct SearchCacheDelta {
    /// The index.json that the cache and this delta describe together.
    SearchCacheLayout::FileStamp json;
    /// The cache it applies to: its header's index.json identity and checksum, and its slots.
    SearchCacheLayout::FileStamp baseJSON;
    uint32_t baseHeaderChecksum = 0;
    uint64_t baseSlots = 0;
    /// Ranks of the cache's records that index.json no longer holds, ascending.
    std::vector<uint32_t> removedRanks;
    /// The slots from `baseSlots` on, as an index of their own: its slot i is slot
    /// `baseSlots + i` of index.json.
    SearchIndex added;

    /// Where the delta of the cache at `cache` lives: beside it.
    static std::filesystem::path beside(const std::filesystem::path& cache) {
        return cache.parent_path() / "index.delta";
    }

    /// The delta that brings the cache `index` was loaded from (or last saved with) at
    /// `cache` up to `index`, when that cache is still the file there and the change is
    /// small enough that readers lose nothing by merging it; nothing otherwise. The delta's
    /// `json` is left for the caller to stamp. Never throws but std::bad_alloc.
    static std::optional<SearchCacheDelta> since(const SearchIndex& index,
                                                 const std::filesystem::path& cache);

    /// Writes the delta atomically, unflushed like the cache. Throws std::system_error.
    void write(const std::filesystem::path& path) const;

    /// The delta at `path` when it is whole; nothing otherwise. Never throws.
    static std::optional<SearchCacheDelta> read(const std::filesystem::path& path) noexcept;
};

} // namespace qs
