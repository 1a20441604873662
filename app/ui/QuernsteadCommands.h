#pragma once

#include "CommandTable.h"

#include <QObject>
#include <QPointer>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

namespace brindle {
class Updater;
}

namespace qs {

class AppStore;

/// The menu bar's side of the store: the command table for QML to lay out (`menus`, `keyed`),
/// which commands are enabled now, and `trigger`, which runs one. What needs a window of its
/// own (the file panel, Settings, the welcome guide) is asked for by a signal, and so is a step
/// through the list, which the list takes so that it keeps the new selection in view.
class QuernsteadCommands : public QObject {
    Q_OBJECT
    QML_NAMED_ELEMENT(Commands)
    QML_SINGLETON
    Q_PROPERTY(QVariantList menus READ menus CONSTANT)
    Q_PROPERTY(QVariantList keyed READ keyed CONSTANT)
    Q_PROPERTY(QVariantMap enabled READ enabled NOTIFY enabledChanged)

public:
    /// Works on the program's one store.
    explicit QuernsteadCommands(QObject* parent = nullptr);
    QuernsteadCommands(AppStore& store, QObject* parent);

    /// Each menu as `title` and `items`; each item as `title`, `keys` (portable), `keysText`
    /// (as the desktop writes them) and `action`.
    QVariantList menus() const;
    /// The items with keys, for the shortcuts.
    QVariantList keyed() const;
    /// Action name to whether it can run now.
    QVariantMap enabled() const;
    CommandTable::State state() const;
    /// The updater "Check for Updates…" asks; without one, or without a feed, it is disabled.
    void setUpdater(brindle::Updater* updater);

    /// Runs the command named `action` when it is enabled; nothing otherwise.
    Q_INVOKABLE void trigger(const QString& action);
    /// The caps of the command's keys, for `Keycap`.
    Q_INVOKABLE QStringList keycaps(const QString& action) const;

signals:
    void enabledChanged();
    void importPanelRequested();
    void settingsRequested();
    void welcomeRequested();
    /// Select the next (1) or previous (-1) message of the list.
    void stepRequested(int delta);

private:
    AppStore& store_;
    QPointer<brindle::Updater> updater_;
};

} // namespace qs
