#pragma once

#include "search/SearchCacheLayout.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace qs {

/// Where each part of an index.json sits, kept beside it as "index.map" so that a save of a
/// few changes patches the file (copying the unchanged bytes) instead of encoding all of it.
/// Derived and disposable like the search cache: it names the identity of the file it
/// describes and is ignored once that file changes.
struct IndexFileMap {
    SearchCacheLayout::FileStamp json;
    /// Offset of each slot's value in `records`: its "{" or its "null".
    std::vector<uint64_t> recordStarts;
    /// Offset of the "]" that closes `records`.
    uint64_t recordsEnd = 0;
    /// Offset just past the "{" that opens `postings`.
    uint64_t postingsOpen = 0;
    /// Offset of the "]" that closes each token's ids, in the file's order of keys (ascending).
    std::vector<uint64_t> postingEnds;

    static std::filesystem::path beside(const std::filesystem::path& json) {
        return json.parent_path() / "index.map";
    }

    /// Writes the map atomically, unflushed (a lost map only costs one whole save).
    /// Throws std::system_error.
    void write(const std::filesystem::path& path) const;

    /// The map at `path` when it is whole and its offsets are in order; nothing otherwise.
    static std::optional<IndexFileMap> read(const std::filesystem::path& path) noexcept;

    friend bool operator==(const IndexFileMap&, const IndexFileMap&) = default;
};

} // namespace qs
