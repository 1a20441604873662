#include "backup/BackupPlan.h"
#include "backup/FilingWorker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <numeric>
#include <stdexcept>
#include <thread>

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
    EXPECT_EQ(qs::BackupPlan::chunked(range(5), 2), (Batches{{1, 2}, {3, 4}, {5}}));
    EXPECT_TRUE(qs::BackupPlan::chunked({}, 500).empty());
    EXPECT_EQ(qs::BackupPlan::chunked({4, 5}, 0), (Batches{{4}, {5}}));
}

// `post` returns once the unfinished weight is within the budget.
TEST(FilingWorker, PostKeepsTheUnfinishedWeightWithinTheBudget) {
    qs::FilingWorker worker(10);
    std::promise<void> release;
    auto gate = release.get_future().share();
    worker.post(4, [gate] { gate.wait(); }); // 4 unfinished: back at once
    worker.post(4, [] {});                   // 8: back at once, though the first still runs
    std::atomic<bool> released{false};
    std::atomic<bool> returnedEarly{false};
    std::thread poster([&] {
        worker.post(4, [] {}); // 12: must wait for the first job
        returnedEarly = !released.load();
    });
    released = true;
    release.set_value();
    poster.join();
    EXPECT_FALSE(returnedEarly);

    std::atomic<bool> heavyDone{false};
    worker.post(25, [&] { heavyDone = true; });
    EXPECT_TRUE(heavyDone);
    worker.finish();
}

// Budget 0: each post waits, so the failure shows at once; otherwise later jobs are dropped.
TEST(FilingWorker, FirstFailureDropsLaterJobsAndIsThrownUnchanged) {
    for (size_t budget : {0, 1000}) {
        std::vector<int> ran;
        std::vector<std::string> thrown;
        qs::FilingWorker worker(budget);
        auto post = [&](std::function<void()> job) {
            try {
                worker.post(1, std::move(job));
            } catch (const std::runtime_error& error) {
                thrown.push_back(error.what());
            }
        };
        post([&] { ran.push_back(1); });
        post([] { throw std::runtime_error("disk full"); });
        EXPECT_EQ(thrown.size(), budget == 0 ? 1u : 0u);
        for (int i = 0; i < 50; ++i) {
            post([&] { ran.push_back(3); });
        }
        EXPECT_TRUE(budget != 0 || thrown.size() == 51u);
        try {
            worker.finish();
            ADD_FAILURE() << "finish should throw";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "disk full");
        }
        EXPECT_EQ(ran, std::vector<int>{1}) << budget;
    }
}

} // namespace
