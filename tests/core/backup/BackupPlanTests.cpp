#include "backup/BackupPlan.h"

#include <gtest/gtest.h>

#include <numeric>

namespace {

using Batches = std::vector<std::vector<std::uint32_t>>;

std::vector<std::uint32_t> range(std::uint32_t first, std::uint32_t count) {
    std::vector<std::uint32_t> uids(count);
    std::iota(uids.begin(), uids.end(), first);
    return uids;
}

std::vector<size_t> sizesOf(const Batches& batches) {
    std::vector<size_t> sizes;
    for (const auto& batch : batches) {
        sizes.push_back(batch.size());
    }
    return sizes;
}

TEST(BackupPlan, ThreeLargeMessagesTravelApart) {
    std::unordered_map<std::uint32_t, std::int64_t> sizes{
        {1, 5'000'000}, {2, 5'000'000}, {3, 5'000'000}};
    EXPECT_EQ(qs::BackupPlan::batches({1, 2, 3}, sizes, 40, 6'000'000), (Batches{{1}, {2}, {3}}));
}

TEST(BackupPlan, CountCapsSmallMessages) {
    std::unordered_map<std::uint32_t, std::int64_t> sizes;
    for (auto uid : range(1, 100)) {
        sizes[uid] = 1000;
    }
    auto batches = qs::BackupPlan::batches(range(1, 100), sizes, 40, 6'000'000);
    EXPECT_EQ(sizesOf(batches), (std::vector<size_t>{40, 40, 20}));
    EXPECT_EQ(batches[1].front(), 41u);
}

TEST(BackupPlan, UnknownSizeWeighsFiftyThousand) {
    // 120 unknown messages weigh 50,000 each: 3 fit under 160,000, a fourth doesn't.
    auto batches = qs::BackupPlan::batches(range(1, 10), {}, 40, 160'000);
    EXPECT_EQ(sizesOf(batches), (std::vector<size_t>{3, 3, 3, 1}));
    // Exactly at the limit still fits.
    EXPECT_EQ(sizesOf(qs::BackupPlan::batches(range(1, 4), {}, 40, 100'000)),
              (std::vector<size_t>{2, 2}));
}

TEST(BackupPlan, OversizeMessageAloneWhereverItStands) {
    std::unordered_map<std::uint32_t, std::int64_t> sizes{
        {1, 100}, {2, 100}, {3, 9'000'000}, {4, 100}, {5, 7'000'000}};
    EXPECT_EQ(qs::BackupPlan::batches({1, 2, 3, 4, 5}, sizes, 40, 6'000'000),
              (Batches{{1, 2}, {3}, {4}, {5}}));
}

TEST(BackupPlan, KeepsSearchOrderAndNeverMakesEmptyBatches) {
    EXPECT_EQ(qs::BackupPlan::batches({9, 3, 7}, {}, 2, 6'000'000), (Batches{{9, 3}, {7}}));
    EXPECT_TRUE(qs::BackupPlan::batches({}, {}, 40, 6'000'000).empty());
    EXPECT_EQ(qs::BackupPlan::batches({1, 2}, {}, 1, 6'000'000), (Batches{{1}, {2}}));
}

TEST(BackupPlan, Chunked) {
    auto pieces = qs::BackupPlan::chunked(range(1, 1201), 500);
    EXPECT_EQ(sizesOf(pieces), (std::vector<size_t>{500, 500, 201}));
    EXPECT_EQ(pieces[2].back(), 1201u);
    EXPECT_TRUE(qs::BackupPlan::chunked({}, 500).empty());
    EXPECT_EQ(qs::BackupPlan::chunked({4, 5}, 500), (Batches{{4, 5}}));
}

} // namespace
