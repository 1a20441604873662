#pragma once

#include "model/LedgerLine.h"
#include "support/Date.h"

#include <QLocale>
#include <QString>
#include <optional>
#include <ostream>

namespace qs {

/// What the backup ledger shows on the right of one folder's line.
struct LedgerFolderLine {
    enum class Kind { running, finished, ago, waiting };

    Kind kind = Kind::waiting;
    /// "+{done} of {total}", "up to date", "+{n} new", how long ago, or "waiting".
    QString text;
    /// "checkmark" for a finished folder, else empty.
    QString symbol;
    /// The progress of a running folder.
    int done = 0;
    int total = 0;

    /// The first that applies: the folder runs now; it finished in this run; it ran before
    /// (`lastRun` from the account's sync state, told as Fmt::ago from `now`); else it waits.
    /// Counts are grouped as `locale` does.
    static LedgerFolderLine of(const std::optional<LedgerLine>& line,
                               const std::optional<Date>& lastRun,
                               Date now = std::chrono::system_clock::now(),
                               const QLocale& locale = QLocale());

    friend bool operator==(const LedgerFolderLine&, const LedgerFolderLine&) = default;
    friend std::ostream& operator<<(std::ostream& out, const LedgerFolderLine& line) {
        return out << "{kind " << int(line.kind) << ", \"" << line.text.toStdString() << "\", \""
                   << line.symbol.toStdString() << "\", " << line.done << "/" << line.total << "}";
    }
};

} // namespace qs
