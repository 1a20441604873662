#pragma once

#include <optional>
#include <stop_token>

namespace qs {

/// The handle of one background operation: a way to ask it to stop. Asking a finished
/// operation does nothing. The handle asks on destruction too, so work in flight when its
/// owner goes away stops at its next check.
class TaskHandle {
public:
    TaskHandle() = default;
    TaskHandle(const TaskHandle&) = delete;
    TaskHandle& operator=(const TaskHandle&) = delete;
    ~TaskHandle() { cancel(); }

    /// Asks the current operation (if any) to stop and starts a new one; returns its token.
    std::stop_token start() {
        cancel();
        source_.emplace();
        return source_->get_token();
    }
    void cancel() {
        if (source_) {
            source_->request_stop();
        }
    }
    /// Cancels and forgets the operation.
    void reset() {
        cancel();
        source_.reset();
    }
    bool exists() const { return source_.has_value(); }

private:
    std::optional<std::stop_source> source_;
};

} // namespace qs
