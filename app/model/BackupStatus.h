#pragma once

#include "backup/BackupProgress.h"
#include "support/Date.h"

#include <QLocale>
#include <QString>
#include <optional>
#include <string>

namespace qs {

/// The state of backups as the toolbar, the strip and the ledger sheet read it.
struct BackupStatus {
    /// A run is under way.
    bool running = false;
    /// The latest report.
    BackupProgress progress;
    /// The 0-based place of the current account in this run, and the run's account count.
    int accountIndex = 0;
    int accountCount = 0;
    /// The sentence that sums up the last run.
    std::optional<std::string> lastMessage;
    /// The titles of the last run's problems, one per line.
    std::optional<std::string> lastError;
    /// When the last run ended; kept through the next run until that one ends.
    std::optional<Date> lastFinished;

    /// The closing sentence of a run: "Stopped" when it was cancelled, else "{n} new
    /// message(s) saved" with `newTotal` grouped as `locale` does, else "Everything was already
    /// in the vault"; `repaired` files written again add "{n} repaired" (alone when nothing is
    /// new).
    static QString closingMessage(bool cancelled, int64_t newTotal,
                                  const QLocale& locale = QLocale(), int64_t repaired = 0);

    /// The toast after a run with problems: "Backup finished — 1 account needs attention" or
    /// "… — {n} accounts need attention".
    static QString attentionMessage(int failures);

    friend bool operator==(const BackupStatus&, const BackupStatus&) = default;
};

} // namespace qs
