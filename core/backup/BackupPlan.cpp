#include "backup/BackupPlan.h"

#include <algorithm>

namespace qs::BackupPlan {

std::vector<std::vector<std::uint32_t>> chunked(const std::vector<std::uint32_t>& uids,
                                                size_t size) {
    size = std::max<size_t>(size, 1);
    std::vector<std::vector<std::uint32_t>> pieces;
    for (size_t start = 0; start < uids.size(); start += size) {
        auto end = uids.begin() + static_cast<std::ptrdiff_t>(std::min(uids.size(), start + size));
        pieces.emplace_back(uids.begin() + static_cast<std::ptrdiff_t>(start), end);
    }
    return pieces;
}

std::vector<std::vector<std::uint32_t>>
batches(const std::vector<std::uint32_t>& uids,
        const std::unordered_map<std::uint32_t, std::int64_t>& sizes, size_t batchCount,
        std::int64_t batchBytes) {
    std::vector<std::vector<std::uint32_t>> result;
    std::vector<std::uint32_t> current;
    std::int64_t weight = 0;
    for (auto uid : uids) {
        auto found = sizes.find(uid);
        std::int64_t size = found == sizes.end() ? unknownSize : found->second;
        if (!current.empty() && (current.size() >= batchCount || weight + size > batchBytes)) {
            result.push_back(std::move(current));
            current.clear();
            weight = 0;
        }
        current.push_back(uid);
        weight += size;
    }
    if (!current.empty()) {
        result.push_back(std::move(current));
    }
    return result;
}

} // namespace qs::BackupPlan
