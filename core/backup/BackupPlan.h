#pragma once

// How a folder's new UIDs are cut into commands: metadata in chunks, bodies in batches whose
// estimated size a server answers comfortably in one FETCH. Pure functions.

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace qs::BackupPlan {

/// UIDs per metadata FETCH, so that a command line stays short even for a scattered set.
inline constexpr size_t metaChunk = 500;

/// The weight in the plan of a message whose size the server didn't tell.
inline constexpr std::int64_t unknownSize = 50'000;

/// `uids` cut in order into pieces of at most `size` (at least 1), the last one possibly
/// shorter; an empty input gives no piece.
std::vector<std::vector<std::uint32_t>> chunked(const std::vector<std::uint32_t>& uids,
                                                size_t size);

/// The body batches for `uids`, in their order. A message weighs its size from `sizes`, or
/// `unknownSize` when it has none. A batch is closed before a message when it isn't empty and
/// holds `batchCount` messages already or would pass `batchBytes` with it, so a message larger
/// than `batchBytes` travels alone and no batch is empty.
std::vector<std::vector<std::uint32_t>>
batches(const std::vector<std::uint32_t>& uids,
        const std::unordered_map<std::uint32_t, std::int64_t>& sizes, size_t batchCount,
        std::int64_t batchBytes);

} // namespace qs::BackupPlan
