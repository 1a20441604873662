#include "QuernsteadCommands.h"

#include "Updater/Updater.h"
#include "model/AppStore.h"
#include "model/PlatformWords.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QKeySequence>
#include <QUrl>

namespace qs {

namespace {

QString text(std::string_view s) {
    return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

QVariantMap item(const CommandTable::Command& command) {
    const QString keys = text(command.keys);
    return {{"title", PlatformWords::adapt(text(command.title))},
            {"keys", keys},
            {"keysText", QKeySequence(keys).toString(QKeySequence::NativeText)},
            {"action", text(command.action)}};
}

} // namespace

QuernsteadCommands::QuernsteadCommands(QObject* parent)
    : QuernsteadCommands(AppStore::shared(), parent) {}

QuernsteadCommands::QuernsteadCommands(AppStore& store, QObject* parent)
    : QObject(parent), store_(store) {
    for (auto signal :
         {&AppStore::accountsChanged, &AppStore::backupChanged, &AppStore::visibleChanged,
          &AppStore::openMessageChanged, &AppStore::selectedPathChanged, &AppStore::queryChanged})
        connect(&store_, signal, this, &QuernsteadCommands::enabledChanged);
}

QVariantList QuernsteadCommands::menus() const {
    QVariantList menus;
    for (std::string_view menu : CommandTable::menus()) {
        QVariantList items;
        for (const auto& command : CommandTable::commands()) {
            if (command.menu == menu)
                items.append(item(command));
        }
        menus.append(QVariantMap{{"title", text(menu)}, {"items", items}});
    }
    return menus;
}

QVariantList QuernsteadCommands::keyed() const {
    QVariantList keyed;
    for (const auto& command : CommandTable::commands()) {
        if (!command.keys.empty())
            keyed.append(item(command));
    }
    return keyed;
}

CommandTable::State QuernsteadCommands::state() const {
    return {.hasAccounts = !store_.accounts().empty(),
            .backupRunning = store_.backup().running,
            .visibleNotEmpty = !store_.visible().empty(),
            .messageOpen = store_.openMessage().has_value(),
            .selection = store_.selectedPath().has_value(),
            .queryNotEmpty = !QString::fromStdString(store_.query()).trimmed().isEmpty(),
            .updatesActive = updater_ && updater_->active()};
}

void QuernsteadCommands::setUpdater(brindle::Updater* updater) {
    updater_ = updater;
    emit enabledChanged();
}

QVariantMap QuernsteadCommands::enabled() const {
    const auto now = state();
    QVariantMap enabled;
    for (const auto& command : CommandTable::commands())
        enabled.insert(text(command.action), CommandTable::isEnabled(command.enabled, now));
    return enabled;
}

QStringList QuernsteadCommands::keycaps(const QString& action) const {
    const auto* command = CommandTable::find(action.toStdString());
    return command ? CommandTable::keycaps(command->keys) : QStringList{};
}

void QuernsteadCommands::trigger(const QString& action) {
    const auto* command = CommandTable::find(action.toStdString());
    if (!command || !CommandTable::isEnabled(command->enabled, state()))
        return;
    const std::string_view name = command->action;
    if (name == "addAccount") {
        store_.setShowAddAccount(true);
    } else if (name == "importFiles") {
        emit importPanelRequested();
    } else if (name == "showVault") {
        store_.openArchiveInFinder();
    } else if (name == "settings") {
        emit settingsRequested();
    } else if (name == "quit") {
        QGuiApplication::quit();
    } else if (name == "backUpNow") {
        store_.backUpAll();
    } else if (name == "stopBackup") {
        store_.stopBackup();
    } else if (name == "backupLedger") {
        store_.setShowBackupActivity(true);
    } else if (name == "freeUpSpace") {
        store_.setShowFreeUp(true);
    } else if (name == "showEverything") {
        store_.showEverything();
    } else if (name == "showRecent") {
        store_.showSmart(QStringLiteral("recent"));
    } else if (name == "showAttachments") {
        store_.showSmart(QStringLiteral("attachments"));
    } else if (name == "showSuspicious") {
        store_.showSmart(QStringLiteral("suspicious"));
    } else if (name == "rebuildIndex") {
        store_.reloadArchive();
    } else if (name == "nextMessage") {
        emit stepRequested(1);
    } else if (name == "previousMessage") {
        emit stepRequested(-1);
    } else if (name == "showImages") {
        store_.allowImages(QString::fromStdString(store_.openMessage()->record.path));
    } else if (name == "revealMessage") {
        store_.revealSelected();
    } else if (name == "openInMailApp") {
        QDesktopServices::openUrl(QUrl::fromLocalFile(
            QString::fromStdString(store_.layout().url(*store_.selectedPath()).string())));
    } else if (name == "saveSearch") {
        store_.saveCurrentSearch();
    } else if (name == "checkForUpdates") {
        updater_->check(true);
    } else if (name == "showWelcome") {
        emit welcomeRequested();
    }
}

} // namespace qs
