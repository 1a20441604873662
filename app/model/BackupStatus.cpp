#include "model/BackupStatus.h"

namespace qs {

QString BackupStatus::closingMessage(bool cancelled, int64_t newTotal, const QLocale& locale,
                                     int64_t repaired) {
    if (cancelled) {
        return QStringLiteral("Stopped");
    }
    if (repaired > 0) {
        auto fixed = QStringLiteral("%1 repaired").arg(locale.toString(qlonglong(repaired)));
        return newTotal > 0
                   ? closingMessage(false, newTotal, locale) + QStringLiteral(" · ") + fixed
                   : fixed;
    }
    if (newTotal == 1) {
        return QStringLiteral("1 new message saved");
    }
    if (newTotal > 1) {
        return QStringLiteral("%1 new messages saved").arg(locale.toString(qlonglong(newTotal)));
    }
    return QStringLiteral("Everything was already in the vault");
}

QString BackupStatus::attentionMessage(int failures) {
    return failures == 1
               ? QStringLiteral("Backup finished — 1 account needs attention")
               : QStringLiteral("Backup finished — %1 accounts need attention").arg(failures);
}

} // namespace qs
