#pragma once

#include <stdexcept>
#include <stop_token>

namespace qs {

/// Thrown where a worker finds that its stop token was triggered. It travels to the top of the
/// operation like any other error and is worded there.
class CancellationError : public std::runtime_error {
public:
    CancellationError() : std::runtime_error("cancelled") {}
};

/// Throws CancellationError when a stop was requested.
inline void checkCancelled(const std::stop_token& token) {
    if (token.stop_requested()) {
        throw CancellationError();
    }
}

} // namespace qs
