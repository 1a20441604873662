#include "BackupLedger.h"

#include "LedgerFolderLine.h"
#include "model/AppStore.h"
#include "model/Fmt.h"
#include "model/ProviderPreset.h"

#include <algorithm>

namespace qs {

namespace {

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

QString kindName(LedgerFolderLine::Kind kind) {
    switch (kind) {
    case LedgerFolderLine::Kind::running:
        return QStringLiteral("running");
    case LedgerFolderLine::Kind::finished:
        return QStringLiteral("finished");
    case LedgerFolderLine::Kind::ago:
        return QStringLiteral("ago");
    case LedgerFolderLine::Kind::waiting:
        return QStringLiteral("waiting");
    }
    return {};
}

} // namespace

BackupLedger::BackupLedger(QObject* parent) : BackupLedger(AppStore::shared(), parent) {}

BackupLedger::BackupLedger(AppStore& store, QObject* parent) : QObject(parent), store_(store) {
    for (auto signal : {&AppStore::accountsChanged, &AppStore::backupFinished}) {
        connect(&store_, signal, this, [this] {
            if (active_) {
                reloadSync();
            }
        });
    }
    for (auto signal :
         {&AppStore::ledgerChanged, &AppStore::backupChanged, &AppStore::backupProblemsChanged}) {
        connect(&store_, signal, this, [this] {
            if (active_) {
                emit changed();
            }
        });
    }
    agoTimer_.setInterval(30'000);
    connect(&agoTimer_, &QTimer::timeout, this, &BackupLedger::changed);
}

void BackupLedger::setActive(bool active) {
    if (active == active_) {
        return;
    }
    active_ = active;
    if (active_) {
        agoTimer_.start();
        reloadSync();
    } else {
        agoTimer_.stop();
        sync_.clear();
    }
    emit activeChanged();
}

void BackupLedger::reloadSync() {
    sync_.clear();
    for (const auto& account : store_.accounts()) {
        sync_[account.id.string()] = store_.layout().loadSync(account);
    }
    emit changed();
}

QString BackupLedger::title() const {
    const auto& account = store_.backup().progress.account;
    if (store_.backup().running && !account.empty()) {
        return QStringLiteral("Backing up %1").arg(text(account));
    }
    return QStringLiteral("Your vault");
}

QVariantList BackupLedger::sections() const {
    QVariantList sections;
    const auto now = std::chrono::system_clock::now();
    for (const auto& account : store_.accounts()) {
        const auto sync = sync_.find(account.id.string());
        QVariantList folders;
        for (const auto& name : account.folders) {
            auto known = std::ranges::find(account.knownFolders, name, &IMAPMailbox::name);
            std::optional<LedgerLine> line;
            if (auto found = store_.ledger().find(account.directoryName() + "/" + name);
                found != store_.ledger().end()) {
                line = found->second;
            }
            std::optional<Date> lastRun;
            if (sync != sync_.end()) {
                if (auto state = sync->second.folders.find(name);
                    state != sync->second.folders.end()) {
                    lastRun = state->second.lastRun;
                }
            }
            const auto shown = LedgerFolderLine::of(line, lastRun, now);
            folders.append(QVariantMap{
                {"name", text(known != account.knownFolders.end() ? known->displayName : name)},
                {"kind", kindName(shown.kind)},
                {"text", shown.text},
                {"symbol", shown.symbol},
                {"done", shown.done},
                {"total", shown.total}});
        }
        QVariant problem;
        if (auto found = store_.backupProblems().find(account.label);
            found != store_.backupProblems().end()) {
            problem = QVariantMap{{"title", text(found->second.title)},
                                  {"advice", text(found->second.advice)}};
        }
        sections.append(QVariantMap{
            {"id", text(account.id.string())},
            {"label", text(account.label)},
            {"symbol", account.label == "Imported"
                           ? QStringLiteral("square.and.arrow.down")
                           : text(ProviderPreset::named(account.provider).symbol)},
            {"checked", account.lastBackup
                            ? QStringLiteral("checked %1").arg(Fmt::ago(*account.lastBackup, now))
                            : QStringLiteral("never backed up")},
            {"problem", problem},
            {"folders", folders}});
    }
    return sections;
}

} // namespace qs
