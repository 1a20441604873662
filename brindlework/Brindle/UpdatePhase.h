#pragma once

#include "Brindle/UpdateFeed.h"

#include <string>

namespace brindle {

/// Where the updater stands. `feed` is set for available, downloading and ready; `progress`
/// (0 to 1) only matters while downloading; `message` is the failure's words.
struct UpdatePhase {
    enum class Kind { idle, checking, upToDate, available, downloading, ready, failed };

    Kind kind = Kind::idle;
    UpdateFeed feed;
    double progress = 0;
    std::string message;

    bool operator==(const UpdatePhase&) const = default;

    static UpdatePhase idle() { return {}; }
    static UpdatePhase checking() { return {Kind::checking, {}, 0, {}}; }
    static UpdatePhase upToDate() { return {Kind::upToDate, {}, 0, {}}; }
    static UpdatePhase available(UpdateFeed feed) { return {Kind::available, feed, 0, {}}; }
    static UpdatePhase downloading(UpdateFeed feed, double progress) {
        return {Kind::downloading, feed, progress, {}};
    }
    static UpdatePhase ready(UpdateFeed feed) { return {Kind::ready, feed, 0, {}}; }
    static UpdatePhase failed(std::string message) { return {Kind::failed, {}, 0, message}; }
};

} // namespace brindle
