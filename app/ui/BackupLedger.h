#pragma once

#include "vault/AccountSyncState.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariant>
#include <QtQml/qqmlregistration.h>
#include <map>
#include <string>

namespace qs {

class AppStore;

/// What the backup ledger sheet shows, worked out from the store so that the sheet only binds:
/// its title and a section per account with the account's folder lines. The accounts' sync
/// files are read while the sheet is `active`, again when accounts change or a run ends, never
/// on each report of a run.
class BackupLedger : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(bool active READ active WRITE setActive NOTIFY activeChanged)
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QVariantList sections READ sections NOTIFY changed)

public:
    /// Works on the program's one store.
    explicit BackupLedger(QObject* parent = nullptr);
    BackupLedger(AppStore& store, QObject* parent);

    bool active() const { return active_; }
    void setActive(bool active);
    /// "Backing up {account}" while a run is on, else "Your vault".
    QString title() const;
    /// Per account in order: id, label, symbol (the provider's; "square.and.arrow.down" for
    /// "Imported"), checked ("checked {ago}" or "never backed up"), problem (title and advice,
    /// or null), and folders, each with name and the LedgerFolderLine's kind, text, symbol,
    /// done and total.
    QVariantList sections() const;

signals:
    void activeChanged();
    void changed();

private:
    void reloadSync();

    AppStore& store_;
    bool active_ = false;
    /// Account id → its sync state, read when the sheet opened or a run ended.
    std::map<std::string, AccountSyncState> sync_;
    // "checked 2 min ago" ages while the sheet is open.
    QTimer agoTimer_;
};

} // namespace qs
