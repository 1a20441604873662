#include "BackupStripText.h"

#include "model/AppStore.h"
#include "model/Fmt.h"
#include "model/SettingsKeys.h"

#include <QLocale>
#include <QSettings>
#include <QStringList>

namespace qs {

BackupStripText::State BackupStripText::of(const AppStore& store) {
    State state;
    state.running = store.backup().running;
    state.progress = store.backup().progress;
    if (const auto& indexing = store.indexing())
        state.indexing = std::pair{indexing->done, indexing->total};
    state.accountCount = static_cast<int>(store.accounts().size());
    state.hasProblems = !store.backupProblems().empty();
    state.lastFinished = store.backup().lastFinished;
    for (const auto& account : store.accounts()) {
        if (!account.lastBackup)
            continue;
        state.anyBackedUp = true;
        if (!store.backup().lastFinished &&
            (!state.lastFinished || *account.lastBackup > *state.lastFinished))
            state.lastFinished = account.lastBackup;
    }
    QSettings settings;
    state.scheduleEnabled = settings.value(SettingsKeys::scheduleEnabled, false).toBool();
    state.scheduleHours = settings.value(SettingsKeys::scheduleHours, 6).toInt();
    return state;
}

QString BackupStripText::progress(const BackupProgress& p) {
    if (p.phase.empty())
        return QStringLiteral("Connecting…");
    const QString folder = QString::fromStdString(p.folder);
    if (p.phase == BackupProgress::downloading && p.messagesTotal > 0) {
        const QLocale locale;
        return QStringLiteral("%1 %2 of %3")
            .arg(folder, locale.toString(p.messagesDone), locale.toString(p.messagesTotal));
    }
    const QString phase = QString::fromStdString(p.phase);
    return folder.isEmpty() ? phase : QStringLiteral("%1 %2").arg(phase, folder);
}

QString BackupStripText::title(const State& s) {
    if (s.running)
        return progress(s.progress);
    if (s.indexing) {
        const QLocale locale;
        return QStringLiteral("Indexing %1 of %2")
            .arg(locale.toString(qulonglong(s.indexing->first)),
                 locale.toString(qulonglong(s.indexing->second)));
    }
    if (s.accountCount == 0)
        return QStringLiteral("No accounts yet");
    if (s.hasProblems)
        return QStringLiteral("Needs attention");
    if (!s.anyBackedUp)
        return QStringLiteral("Not backed up yet");
    return QStringLiteral("Backed up");
}

QString BackupStripText::detail(const State& s, Date now) {
    QStringList parts;
    if (s.lastFinished)
        parts << Fmt::ago(*s.lastFinished, now);
    if (s.scheduleEnabled)
        parts << QStringLiteral("auto %1h").arg(s.scheduleHours);
    if (s.accountCount > 1)
        parts << QStringLiteral("%1 acct").arg(s.accountCount);
    return parts.join(QStringLiteral(" · "));
}

} // namespace qs
