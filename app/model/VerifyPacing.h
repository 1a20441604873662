#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace qs {

/// How verification of a plan is paced so that a short and a long check feel alike: about 40
/// rounds, spread over no less than about 1.8 seconds. The check itself needs none of it.
struct VerifyPacing {
    /// The most rounds a walk is cut into.
    static constexpr int64_t maxRounds = 40;
    /// The whole walk's target time, and the bounds of one pause.
    static constexpr double targetSeconds = 1.8;
    static constexpr double minPause = 0.025;
    static constexpr double maxPause = 0.12;

    int64_t rounds = 0;
    /// Items per round; the last round may hold fewer, and fewer rounds may be needed.
    int64_t batch = 1;
    std::chrono::milliseconds pause{0};

    /// For a plan of `items` items; zero rounds for none.
    static VerifyPacing of(int64_t items) {
        VerifyPacing pacing;
        if (items <= 0) {
            return pacing;
        }
        pacing.rounds = std::min(items, maxRounds);
        pacing.batch = std::max<int64_t>(1, (items + pacing.rounds - 1) / pacing.rounds);
        double seconds =
            std::clamp(targetSeconds / static_cast<double>(pacing.rounds), minPause, maxPause);
        pacing.pause = std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000 + 0.5));
        return pacing;
    }

    friend bool operator==(const VerifyPacing&, const VerifyPacing&) = default;
};

} // namespace qs
