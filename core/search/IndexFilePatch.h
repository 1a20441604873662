#pragma once

#include "search/IndexFileMap.h"

#include <filesystem>
#include <optional>

namespace qs {

class SearchIndex;

/// A save of index.json that copies the unchanged bytes of the file on disk and writes only
/// what changed since the index was loaded or saved: slots removed since become null, new
/// records and their ids are inserted, new tokens take their place in key order. The result
/// is byte for byte what a whole encoding of the same index writes, when the index was read
/// from index.json; read from the search cache, the postings also keep ids of tombstones,
/// which every reader skips.
class IndexFilePatch {
public:
    /// Writes `json` for `index` from the file `map` describes, atomically, and returns the
    /// new file's map (not yet stamped). Nothing, with nothing written, when the index doesn't
    /// hold what the map describes or the file on disk is no longer the mapped one.
    /// Throws std::system_error when writing fails.
    static std::optional<IndexFileMap> write(const SearchIndex& index, const IndexFileMap& map,
                                             const std::filesystem::path& json);
};

} // namespace qs
