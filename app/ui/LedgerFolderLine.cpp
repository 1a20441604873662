#include "LedgerFolderLine.h"

#include "model/Fmt.h"

namespace qs {

LedgerFolderLine LedgerFolderLine::of(const std::optional<LedgerLine>& line,
                                      const std::optional<Date>& lastRun, Date now,
                                      const QLocale& locale) {
    if (line && line->running) {
        return {Kind::running,
                QStringLiteral("+%1 of %2")
                    .arg(locale.toString(line->done), locale.toString(line->total)),
                {},
                line->done,
                line->total};
    }
    if (line && line->finished) {
        // No count of zero: a folder with nothing new is simply up to date.
        return {Kind::finished,
                line->newMessages == 0
                    ? QStringLiteral("up to date")
                    : QStringLiteral("+%1 new").arg(locale.toString(line->newMessages)),
                QStringLiteral("checkmark"), 0, 0};
    }
    if (lastRun) {
        return {Kind::ago, Fmt::ago(*lastRun, now, locale), {}, 0, 0};
    }
    return {Kind::waiting, QStringLiteral("waiting"), {}, 0, 0};
}

} // namespace qs
