// The filing worker: order, the memory budget, the first failure stopping everything after it,
// and the jobs handed over before a way out by error still being run.
#include "backup/FilingWorker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using qs::FilingWorker;

TEST(FilingWorker, RunsJobsInOrderAndFinishWaitsForAll) {
    std::vector<int> order;
    FilingWorker worker(10);
    for (int i = 0; i < 100; ++i) {
        worker.post(1, [&order, i] { order.push_back(i); });
    }
    worker.finish();
    ASSERT_EQ(order.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(order[static_cast<size_t>(i)], i);
    }
}

// `post` comes back only when what is unfinished weighs no more than the budget; a job heavier
// than the budget has run by then.
TEST(FilingWorker, PostKeepsTheUnfinishedWeightWithinTheBudget) {
    FilingWorker worker(10);
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

TEST(FilingWorker, FirstFailureDropsLaterJobsAndIsThrownUnchanged) {
    std::vector<int> ran;
    FilingWorker worker(0);
    worker.post(1, [&] { ran.push_back(1); });
    // With a budget of 0, each post waits for its job: the failure is known at once.
    EXPECT_THROW(worker.post(1, [] { throw std::runtime_error("disk full"); }), std::runtime_error);
    try {
        worker.post(1, [&] { ran.push_back(3); });
        FAIL() << "post after a failure should throw";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "disk full");
    }
    EXPECT_THROW(worker.finish(), std::runtime_error);
    EXPECT_EQ(ran, std::vector<int>{1});
}

// Jobs queued behind a failing one never run, even when the failure is found only by finish.
TEST(FilingWorker, JobsQueuedBehindAFailureNeverRun) {
    std::atomic<bool> laterRan{false};
    FilingWorker worker(1'000);
    worker.post(1, [] { throw std::runtime_error("write failed"); });
    for (int i = 0; i < 50; ++i) {
        try {
            worker.post(1, [&] { laterRan = true; });
        } catch (const std::runtime_error&) {
            break;
        }
    }
    EXPECT_THROW(worker.finish(), std::runtime_error);
    EXPECT_FALSE(laterRan);
}

// Leaving by another error: what was handed over is still done before the destructor returns.
TEST(FilingWorker, DestructorRunsWhatWasHandedOver) {
    std::atomic<int> ran{0};
    {
        FilingWorker worker(1'000);
        for (int i = 0; i < 20; ++i) {
            worker.post(1, [&] { ++ran; });
        }
    }
    EXPECT_EQ(ran.load(), 20);
}

} // namespace
