#include "model/AppStore.h"

#include "model/Credentials.h"
#include "model/VaultFiles.h"
#include "model/VaultRoot.h"
#include "support/AtomicFile.h"

#include <QDateTime>
#include <QVariantMap>
#include <algorithm>

namespace qs {

AppStore::AppStore(QObject* parent) : QObject(parent), layout_{VaultRoot::choose()} {
    toastTimer_.setSingleShot(true);
    toastTimer_.setInterval(toastMilliseconds);
    connect(&toastTimer_, &QTimer::timeout, this, &AppStore::clearToast);
    connect(this, &AppStore::accountsChanged, this, &AppStore::archiveAccountsChanged);

    // A save killed half-way leaves its temporary file; nobody else would ever remove it.
    AtomicFile::removeDeadLeftovers(layout_.metaDirectory());
    accounts_ = VaultFiles::loadAccounts(layout_).value_or(std::vector<MailAccount>{});
    if (auto searches = VaultFiles::loadSavedSearches(layout_)) {
        // Assigning saves, so a readable file is written back at once.
        setSavedSearches(std::move(*searches));
    }
    for (const auto& account : accounts_) {
        expandedAccounts_.insert(account.directoryName());
    }
}

AppStore& AppStore::shared() {
    static auto* instance = new AppStore();
    return *instance;
}

void AppStore::setSavedSearches(std::vector<SavedSearch> searches) {
    savedSearches_ = std::move(searches);
    saveFilters();
    emit savedSearchesChanged();
}

void AppStore::saveFilters() {
    VaultFiles::saveSavedSearches(layout_, savedSearches_);
}

void AppStore::saveAccounts() {
    VaultFiles::saveAccounts(layout_, accounts_);
}

void AppStore::addAccount(const MailAccount& account, const std::string& password) {
    Credentials::save(password, account);
    std::erase_if(accounts_, [&](const MailAccount& a) { return a.id == account.id; });
    accounts_.push_back(account);
    expandedAccounts_.insert(account.directoryName());
    saveAccounts();
    emit accountsChanged();
    emit expandedAccountsChanged();
}

void AppStore::updateAccount(const MailAccount& account) {
    auto found = std::ranges::find(accounts_, account.id, &MailAccount::id);
    if (found == accounts_.end()) {
        return;
    }
    *found = account;
    saveAccounts();
    emit accountsChanged();
}

void AppStore::removeAccount(const MailAccount& account) {
    Credentials::remove(account);
    std::erase_if(accounts_, [&](const MailAccount& a) { return a.id == account.id; });
    saveAccounts();
    emit accountsChanged();
    showToast(QStringLiteral("Removed “%1” — its messages stay in the vault")
                  .arg(QString::fromStdString(account.label)),
              QStringLiteral("person.crop.circle.badge.minus"), QStringLiteral("ink2"));
}

void AppStore::changeArchiveRoot(const std::filesystem::path& root) {
    VaultRoot::remember(root);
    layout_ = ArchiveLayout{root};
    emit layoutChanged();
    AtomicFile::removeDeadLeftovers(layout_.metaDirectory());
    accounts_ = VaultFiles::loadAccounts(layout_).value_or(std::vector<MailAccount>{});
    emit accountsChanged();
    if (auto searches = VaultFiles::loadSavedSearches(layout_)) {
        setSavedSearches(std::move(*searches));
    }
    clearArchive();
    reloadArchive();
}

void AppStore::showToast(const QString& text, const QString& symbol, const QString& tint) {
    toast_ = Toast{UUID::random(), text, symbol, tint};
    toastTimer_.start();
    emit toastChanged();
}

void AppStore::clearToast() {
    toast_.reset();
    emit toastChanged();
}

void AppStore::setAccountExpanded(const QString& directoryName, bool expanded) {
    auto name = directoryName.toStdString();
    bool changed =
        expanded ? expandedAccounts_.insert(name).second : expandedAccounts_.erase(name) > 0;
    if (changed) {
        emit expandedAccountsChanged();
    }
}

QString AppStore::archiveRoot() const {
    return QString::fromStdString(layout_.root.string());
}

QVariantList AppStore::accountsForView() const {
    QVariantList list;
    for (const auto& account : accounts_) {
        list.append(QVariantMap{
            {"id", QString::fromStdString(account.id.string())},
            {"label", QString::fromStdString(account.label)},
            {"username", QString::fromStdString(account.username)},
            {"host", QString::fromStdString(account.server.host)},
            {"port", int(account.server.port)},
            {"provider", QString::fromStdString(account.provider)},
            {"directoryName", QString::fromStdString(account.directoryName())},
            {"lastBackup", account.lastBackup ? QVariant(QDateTime::fromSecsSinceEpoch(
                                                    unixSeconds(*account.lastBackup)))
                                              : QVariant()},
        });
    }
    return list;
}

QStringList AppStore::expandedAccountsForView() const {
    QStringList names;
    for (const auto& name : expandedAccounts_) {
        names.append(QString::fromStdString(name));
    }
    return names;
}

void AppStore::setExpandedAccounts(const QStringList& names) {
    std::set<std::string> next;
    for (const auto& name : names) {
        next.insert(name.toStdString());
    }
    if (next != expandedAccounts_) {
        expandedAccounts_ = std::move(next);
        emit expandedAccountsChanged();
    }
}

QVariantList AppStore::savedSearchesForView() const {
    QVariantList list;
    for (const auto& search : savedSearches_) {
        list.append(QVariantMap{{"id", QString::fromStdString(search.id.string())},
                                {"name", QString::fromStdString(search.name)},
                                {"query", QString::fromStdString(search.query)}});
    }
    return list;
}

QVariant AppStore::toastForView() const {
    return toast_ ? QVariant::fromValue(*toast_) : QVariant();
}

} // namespace qs
