#include "model/AppStore.h"

#include "model/Credentials.h"
#include "model/KeychainError.h"
#include "model/VaultFiles.h"
#include "model/VaultRoot.h"
#include "support/AtomicFile.h"

#include <QDateTime>
#include <QProcess>
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
    std::optional<std::string> previous;
    if (!account.passwordCommand) {
        // Kept to put back if the vault refuses the account: a replaced password must not be
        // lost along with the change.
        try {
            previous = Credentials::password(account);
        } catch (const KeychainError&) {
            // The save below fails alike and says so.
        }
        Credentials::save(password, account);
    }
    auto next = accounts_;
    std::erase_if(next, [&](const MailAccount& a) { return a.id == account.id; });
    next.push_back(account);
    try {
        VaultFiles::writeAccounts(layout_, next);
    } catch (const std::system_error&) {
        if (!account.passwordCommand) {
            // No password is left behind for an account the vault doesn't hold.
            if (previous) {
                try {
                    Credentials::save(*previous, account);
                } catch (...) {
                }
            } else {
                Credentials::remove(account);
            }
        }
        throw;
    }
    if (account.passwordCommand) {
        // The command takes the place of a stored password, which would only go stale.
        Credentials::remove(account);
    }
    accounts_ = std::move(next);
    expandedAccounts_.insert(account.directoryName());
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

void AppStore::removeAccountById(const QString& id) {
    auto found = std::ranges::find_if(
        accounts_, [&](const MailAccount& a) { return a.id.string() == id.toStdString(); });
    if (found != accounts_.end()) {
        removeAccount(MailAccount(*found));
    }
}

void AppStore::openArchiveInFinder() {
    std::error_code ignored;
    std::filesystem::create_directories(layout_.root, ignored);
    // The model has no GUI library; the desktop's opener shows the folder.
    QProcess::startDetached(QStringLiteral("xdg-open"),
                            {QString::fromStdString(layout_.root.string())});
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
