#pragma once

#include <string>

namespace brindle {

/// The failure of any step of downloading, staging or proving an update, already in the words
/// the user reads.
struct UpdateError {
    std::string message;
    bool operator==(const UpdateError&) const = default;
};

} // namespace brindle
