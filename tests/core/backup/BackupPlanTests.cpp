#include "backup/BackupPlan.h"

#include <gtest/gtest.h>

#include <numeric>

namespace {

using Batches = std::vector<std::vector<std::uint32_t>>;
using Sizes = std::unordered_map<std::uint32_t, std::int64_t>;

std::vector<std::uint32_t> range(std::uint32_t count) {
    std::vector<std::uint32_t> uids(count);
    std::iota(uids.begin(), uids.end(), 1);
    return uids;
}

// Unknown sizes weigh 50,000.
TEST(BackupPlan, BatchesCloseOnCountOrBytesAndNeverComeEmpty) {
    struct Row {
        std::vector<std::uint32_t> uids;
        Sizes sizes;
        size_t count;
        std::int64_t bytes;
        Batches expected;
    };
    const Row rows[] = {
        {range(5), {{3, 9'000'000}, {5, 7'000'000}}, 40, 6'000'000, {{1, 2}, {3}, {4}, {5}}},
        {range(5), {}, 40, 100'000, {{1, 2}, {3, 4}, {5}}},
        {range(4), {}, 40, 149'999, {{1, 2}, {3, 4}}},
        {{9, 3, 7}, {}, 2, 6'000'000, {{9, 3}, {7}}},
        {{}, {}, 40, 6'000'000, {}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(qs::BackupPlan::batches(row.uids, row.sizes, row.count, row.bytes), row.expected)
            << row.bytes;
    }
}

TEST(BackupPlan, Chunked) {
    auto pieces = qs::BackupPlan::chunked(range(1201), 500);
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces[1].front(), 501u);
    EXPECT_EQ(pieces[2].size(), 201u);
    EXPECT_TRUE(qs::BackupPlan::chunked({}, 500).empty());
    EXPECT_EQ(qs::BackupPlan::chunked({4, 5}, 0), (Batches{{4}, {5}}));
}

} // namespace
