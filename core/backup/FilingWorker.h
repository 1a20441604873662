#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

namespace qs {

/// A second thread that runs jobs one at a time in the order they were posted, so that the
/// disk work of a backup (writing message files, flushing, saving the state) overlaps the
/// download of the next messages instead of waiting for it.
///
/// Each job carries a weight (the bytes it holds). `post` returns only once the weight of the
/// jobs not yet finished, the running one included, is at most the budget, so memory holds at
/// most the budget plus whatever the caller receives meanwhile; a job heavier than the budget is
/// run before `post` returns, so the caller then holds nothing else of its own.
///
/// The first job that throws stops the worker: later jobs are dropped unrun, and `post` and
/// `finish` throw that error, unchanged. Not thread-safe: one thread posts.
class FilingWorker {
public:
    explicit FilingWorker(size_t budget);
    /// Runs every job still queued (unless one failed), then joins. Errors then are dropped:
    /// this is the way out after another error, when the jobs already handed over (a finished
    /// batch to save) should still be done.
    ~FilingWorker();

    FilingWorker(const FilingWorker&) = delete;
    FilingWorker& operator=(const FilingWorker&) = delete;

    /// Queues `job`, then waits as told above. Throws the error of an earlier job, if any; the
    /// job is then dropped.
    void post(size_t weight, std::function<void()> job);

    /// Waits until every posted job has run. Throws the first job's error, if any.
    void finish();

    /// Waits until `condition` holds, which is asked whenever a job ends (and at once); it reads
    /// what the jobs change. Throws the first job's error, if any, instead of waiting on.
    void waitFor(const std::function<bool()>& condition);

private:
    struct Job {
        size_t weight;
        std::function<void()> run;
    };

    void work();
    void rethrowFailure();

    const size_t budget_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> queue_;
    size_t outstanding_ = 0; ///< weight of the queued jobs and the running one
    bool busy_ = false;      ///< a job is running
    bool closing_ = false;
    std::exception_ptr failure_;
    std::thread thread_;
};

} // namespace qs
