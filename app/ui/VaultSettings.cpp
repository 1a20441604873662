#include "VaultSettings.h"

#include "model/AppStore.h"
#include "model/Fmt.h"
#include "model/SettingsKeys.h"

#include <QSettings>

#include <algorithm>
#include <array>

namespace qs {

namespace {

constexpr int shownHoursWhileUnset = 6;
constexpr std::array hourChoiceValues{1, 2, 3, 6, 12, 24};

QSettings userSettings() {
    return QSettings(SettingsKeys::organisation, SettingsKeys::application);
}

bool isInbox(const std::string& name) {
    return QString::fromStdString(name).toUpper() == u"INBOX";
}

// The mailboxes a backup takes: the chosen ones, or the inbox while none is chosen.
bool included(const MailAccount& account, const std::string& name) {
    if (account.folders.empty())
        return isInbox(name);
    return std::ranges::find(account.folders, name) != account.folders.end();
}

} // namespace

VaultSettings::VaultSettings(QObject* parent) : VaultSettings(AppStore::shared(), parent) {}

VaultSettings::VaultSettings(AppStore& store, QObject* parent) : QObject(parent), store_(store) {
    connect(&store_, &AppStore::accountsChanged, this, &VaultSettings::accountsChanged);
}

bool VaultSettings::scheduleEnabled() const {
    return userSettings().value(SettingsKeys::scheduleEnabled, false).toBool();
}

void VaultSettings::setScheduleEnabled(bool enabled) {
    if (enabled == scheduleEnabled())
        return;
    userSettings().setValue(SettingsKeys::scheduleEnabled, enabled);
    emit scheduleChanged();
}

int VaultSettings::scheduleHours() const {
    return userSettings().value(SettingsKeys::scheduleHours, shownHoursWhileUnset).toInt();
}

void VaultSettings::setScheduleHours(int hours) {
    auto settings = userSettings();
    if (settings.contains(SettingsKeys::scheduleHours) && hours == scheduleHours())
        return;
    settings.setValue(SettingsKeys::scheduleHours, hours);
    emit scheduleChanged();
}

QVariantList VaultSettings::hourChoices() {
    QVariantList choices;
    for (int hours : hourChoiceValues) {
        const QString title = hours == 1 ? QStringLiteral("Every 1 hour")
                                         : QStringLiteral("Every %1 hours").arg(hours);
        choices.append(QVariantMap{{"hours", hours}, {"title", title}});
    }
    return choices;
}

int VaultSettings::hourChoice() const {
    const auto found = std::ranges::find(hourChoiceValues, scheduleHours());
    return found == hourChoiceValues.end() ? -1 : int(found - hourChoiceValues.begin());
}

void VaultSettings::setHourChoice(int index) {
    if (index >= 0 && index < int(hourChoiceValues.size()))
        setScheduleHours(hourChoiceValues[size_t(index)]);
}

QVariantList VaultSettings::accounts() const {
    QVariantList list;
    for (const MailAccount& account : store_.accounts()) {
        QVariantList folders;
        int chosen = 0;
        for (const IMAPMailbox& mailbox : account.knownFolders) {
            if (!mailbox.isSelectable())
                continue;
            const bool in = included(account, mailbox.name);
            chosen += in ? 1 : 0;
            folders.append(QVariantMap{{"name", QString::fromStdString(mailbox.name)},
                                       {"title", QString::fromStdString(mailbox.displayName)},
                                       {"included", in}});
        }
        list.append(QVariantMap{
            {"id", QString::fromStdString(account.id.string())},
            {"label", QString::fromStdString(account.label)},
            {"server", QString::fromStdString(account.server.host)},
            {"lastBackup",
             account.lastBackup ? Fmt::ago(*account.lastBackup) : QStringLiteral("never")},
            {"foldersTitle", QStringLiteral("Folders to back up (%1)").arg(chosen)},
            {"folders", folders},
        });
    }
    return list;
}

QString VaultSettings::version() {
    return QStringLiteral("Version %1").arg(QStringLiteral(QS_VERSION));
}

void VaultSettings::moveVault(const QUrl& folder) {
    if (!folder.isLocalFile())
        return;
    store_.changeArchiveRoot(folder.toLocalFile().toStdString());
}

void VaultSettings::setFolderIncluded(const QString& accountId, const QString& name, bool include) {
    const auto& accounts = store_.accounts();
    const auto found = std::ranges::find_if(
        accounts, [&](const MailAccount& a) { return a.id.string() == accountId.toStdString(); });
    if (found == accounts.end())
        return;
    MailAccount account = *found;
    const std::string target = name.toStdString();
    // The new choice is made explicit, in the server's order of the mailboxes.
    std::vector<std::string> folders;
    for (const IMAPMailbox& mailbox : account.knownFolders) {
        const bool in = mailbox.name == target ? include : included(account, mailbox.name);
        if (in)
            folders.push_back(mailbox.name);
    }
    account.folders = std::move(folders);
    store_.updateAccount(account);
}

} // namespace qs
