#pragma once

#include "model/SavedSearch.h"
#include "model/Toast.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariant>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace qs {

/// The application's one central, observable model. It lives on the main thread, owns the
/// vault layout, the accounts and the saved searches, and alone writes accounts.json and
/// filters.json. Construction picks the vault root and reads the records; nothing in it can
/// fail visibly (an unreadable file is an empty list).
class AppStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString archiveRoot READ archiveRoot NOTIFY layoutChanged)
    Q_PROPERTY(QVariantList accounts READ accountsForView NOTIFY accountsChanged)
    Q_PROPERTY(QStringList expandedAccounts READ expandedAccountsForView WRITE setExpandedAccounts
                   NOTIFY expandedAccountsChanged)
    Q_PROPERTY(QVariantList savedSearches READ savedSearchesForView NOTIFY savedSearchesChanged)
    Q_PROPERTY(QVariant toast READ toastForView NOTIFY toastChanged)

public:
    /// How long a toast stays before it clears itself.
    static constexpr int toastMilliseconds = 2'600;

    /// Picks the vault root (QUERNSTEAD_ARCHIVE_DIR, then the "archiveRoot" setting, then
    /// Documents/Quernstead) and reads accounts and saved searches from it. Creates nothing on
    /// disk, apart from rewriting a readable filters file.
    explicit AppStore(QObject* parent = nullptr);

    /// The one instance of the running program, made at first use on the main thread.
    static AppStore& shared();

    const ArchiveLayout& layout() const { return layout_; }
    const std::vector<MailAccount>& accounts() const { return accounts_; }
    const std::set<std::string>& expandedAccounts() const { return expandedAccounts_; }
    const std::vector<SavedSearch>& savedSearches() const { return savedSearches_; }
    const std::optional<Toast>& toast() const { return toast_; }

    /// Replaces the saved searches and writes them to the vault (saveFilters).
    void setSavedSearches(std::vector<SavedSearch> searches);

    /// Writes `accounts` to the vault. Reports nothing: a failure leaves the list in memory
    /// right until the next launch.
    void saveAccounts();

    /// Stores the password, then adds the account (last; an account with the same id is
    /// replaced and moves to the end), unfolds it in the sidebar and saves. Throws the
    /// password store's error (KeychainError, std::system_error) and then changes nothing.
    void addAccount(const MailAccount& account, const std::string& password);

    /// Replaces the account with the same id and saves; does nothing for an unknown id.
    void updateAccount(const MailAccount& account);

    /// Deletes the account's password, drops the account and saves, and says so in a toast.
    /// Its folders, message files and sync file stay on disk: removing never deletes mail.
    void removeAccount(const MailAccount& account);

    /// Makes another folder the vault, remembering it in the settings; moves nothing. Accounts
    /// come from the new vault (none if unreadable); saved searches too, but when the new
    /// vault has none readable the current ones stay and the next save carries them over.
    void changeArchiveRoot(const std::filesystem::path& root);

    /// Shows a passing notice; a new toast replaces the old one at once and restarts the clock.
    /// `tint` names a theme colour.
    Q_INVOKABLE void showToast(const QString& text, const QString& symbol,
                               const QString& tint = QStringLiteral("accent"));

    /// Folds or unfolds an account (by its folder name) in the sidebar.
    Q_INVOKABLE void setAccountExpanded(const QString& directoryName, bool expanded);

    QString archiveRoot() const;
    QVariantList accountsForView() const;
    QStringList expandedAccountsForView() const;
    void setExpandedAccounts(const QStringList& names);
    QVariantList savedSearchesForView() const;
    QVariant toastForView() const;

signals:
    void layoutChanged();
    void accountsChanged();
    void expandedAccountsChanged();
    void savedSearchesChanged();
    void toastChanged();

private:
    void saveFilters();
    void clearToast();
    /// Where the vault's browsing state (index, records) is reloaded after the root changes;
    /// the browsing part of the store fills it in. Until then a root change reloads nothing.
    void reloadArchive();

    ArchiveLayout layout_;
    std::vector<MailAccount> accounts_;
    std::set<std::string> expandedAccounts_;
    std::vector<SavedSearch> savedSearches_;
    std::optional<Toast> toast_;
    QTimer toastTimer_;
};

} // namespace qs
