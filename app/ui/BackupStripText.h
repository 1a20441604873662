#pragma once

#include "backup/BackupProgress.h"
#include "support/Date.h"

#include <QString>
#include <optional>

namespace qs {

class AppStore;

/// The one line under the sidebar: a state title and a detail. Pure functions of `State`.
struct BackupStripText {
    struct State {
        bool running = false;
        /// The run's latest report; an empty phase means none arrived yet.
        BackupProgress progress;
        /// Files read and to read while the vault is being indexed.
        std::optional<std::pair<size_t, size_t>> indexing;
        int accountCount = 0;
        bool hasProblems = false;
        /// Some account has a backup date.
        bool anyBackedUp = false;
        /// The end of the last run, or the newest account backup when no run ended yet.
        std::optional<Date> lastFinished;
        bool scheduleEnabled = false;
        int scheduleHours = 6;
    };

    static State of(const AppStore& store);
    static QString title(const State& state);
    /// The last finish's age, the schedule and the account count, joined by " · ".
    static QString detail(const State& state, Date now = std::chrono::system_clock::now());
    /// The progress of a run: "Connecting…" before the first report.
    static QString progress(const BackupProgress& progress);
};

} // namespace qs
