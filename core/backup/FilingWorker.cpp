#include "backup/FilingWorker.h"

namespace qs {

FilingWorker::FilingWorker(size_t budget) : budget_(budget), thread_([this] { work(); }) {}

FilingWorker::~FilingWorker() {
    {
        std::lock_guard lock(mutex_);
        closing_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void FilingWorker::post(size_t weight, std::function<void()> job) {
    std::unique_lock lock(mutex_);
    rethrowFailure();
    queue_.push_back({weight, std::move(job)});
    outstanding_ += weight;
    changed_.notify_all();
    changed_.wait(lock, [&] { return outstanding_ <= budget_ || failure_; });
    rethrowFailure();
}

void FilingWorker::finish() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return (queue_.empty() && !busy_) || failure_; });
    rethrowFailure();
}

void FilingWorker::waitFor(const std::function<bool()>& condition) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return failure_ || condition(); });
    rethrowFailure();
}

void FilingWorker::rethrowFailure() {
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

void FilingWorker::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return !queue_.empty() || closing_; });
        if (queue_.empty() || failure_) {
            // Closing with nothing left, or stopped by a failure: nothing more runs.
            if (closing_) {
                return;
            }
            queue_.clear();
            continue;
        }
        auto job = std::move(queue_.front());
        queue_.pop_front();
        busy_ = true;
        lock.unlock();
        std::exception_ptr error;
        try {
            job.run();
        } catch (...) {
            error = std::current_exception();
        }
        // The job's captures (a message body) go before its weight is released.
        job.run = nullptr;
        lock.lock();
        busy_ = false;
        outstanding_ -= job.weight;
        if (error && !failure_) {
            failure_ = error;
            outstanding_ = 0;
            queue_.clear();
        }
        changed_.notify_all();
    }
}

} // namespace qs
