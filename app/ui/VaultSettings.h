#pragma once

#include <QObject>
#include <QUrl>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

namespace qs {

class AppStore;

/// What the Settings window reads and changes: the automatic backup settings (persisted, read
/// by the scheduler at each look), the vault's place, and the accounts with their folders.
class VaultSettings : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(
        bool scheduleEnabled READ scheduleEnabled WRITE setScheduleEnabled NOTIFY scheduleChanged)
    Q_PROPERTY(int scheduleHours READ scheduleHours WRITE setScheduleHours NOTIFY scheduleChanged)
    Q_PROPERTY(QVariantList hourChoices READ hourChoices CONSTANT)
    Q_PROPERTY(int hourChoice READ hourChoice WRITE setHourChoice NOTIFY scheduleChanged)
    Q_PROPERTY(QVariantList accounts READ accounts NOTIFY accountsChanged)
    Q_PROPERTY(QString version READ version CONSTANT)

public:
    /// Works on the program's one store.
    explicit VaultSettings(QObject* parent = nullptr);
    VaultSettings(AppStore& store, QObject* parent);

    bool scheduleEnabled() const;
    void setScheduleEnabled(bool enabled);
    /// 6 while the setting was never stored, though the scheduler then waits one hour: the
    /// value is only stored when the user picks one.
    int scheduleHours() const;
    void setScheduleHours(int hours);
    /// The picker's entries: `hours` and `title` ("Every 1 hour", "Every 6 hours").
    static QVariantList hourChoices();
    /// The picker's entry of `scheduleHours`; -1 for a stored value it doesn't offer.
    int hourChoice() const;
    void setHourChoice(int index);
    /// Each account as `id`, `label`, `server`, `lastBackup` ("5 min ago" or "never"),
    /// `foldersTitle` ("Folders to back up ({n})") and `folders` (`name`, `title`, `included`).
    QVariantList accounts() const;
    /// "Version {n}".
    static QString version();

    /// The vault's new place, chosen in the folder panel.
    Q_INVOKABLE void moveVault(const QUrl& folder);
    /// Adds or removes one mailbox of the account's backup and saves the account.
    Q_INVOKABLE void setFolderIncluded(const QString& accountId, const QString& name,
                                       bool included);

signals:
    void scheduleChanged();
    void accountsChanged();

private:
    AppStore& store_;
};

} // namespace qs
