#pragma once

#include "backup/ImportOutcome.h"
#include "model/BackupStatus.h"
#include "model/CleanupModel.h"
#include "model/FolderSummary.h"
#include "model/FriendlyError.h"
#include "model/LedgerLine.h"
#include "model/MessageListModel.h"
#include "model/MonthGroup.h"
#include "model/OpenMessage.h"
#include "model/RecordCatalog.h"
#include "model/SavedSearch.h"
#include "model/SidebarItem.h"
#include "model/SmartFilter.h"
#include "model/TaskHandle.h"
#include "model/TimelineModel.h"
#include "model/Toast.h"
#include "search/SearchIndex.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QUrl>
#include <QVariant>
#include <QVariantMap>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <unordered_map>
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
    // Browsing the vault (AppStoreBrowsing.cpp).
    Q_PROPERTY(QString query READ queryForView WRITE setQueryFromView NOTIFY queryChanged)
    Q_PROPERTY(QString selectedPath READ selectedPathForView WRITE setSelectedPathFromView NOTIFY
                   selectedPathChanged)
    Q_PROPERTY(QString sidebarTitle READ sidebarTitle NOTIFY sidebarChanged)
    Q_PROPERTY(QString vaultSummary READ vaultSummary NOTIFY recordsChanged)
    Q_PROPERTY(QVariant indexing READ indexingForView NOTIFY indexingChanged)
    Q_PROPERTY(int groupsVersion READ groupsVersion NOTIFY groupsChanged)
    Q_PROPERTY(int listEpoch READ listEpoch CONSTANT)
    Q_PROPERTY(int visibleCount READ visibleCount NOTIFY visibleChanged)
    Q_PROPERTY(QVariantMap folders READ foldersForView NOTIFY foldersChanged)
    Q_PROPERTY(
        QStringList archiveAccounts READ archiveAccountsForView NOTIFY archiveAccountsChanged)
    Q_PROPERTY(QObject* messageList READ messageList CONSTANT)
    Q_PROPERTY(QObject* timeline READ timelineObject CONSTANT)
    // Opening a message (AppStoreOpening.cpp).
    Q_PROPERTY(QVariant openMessage READ openMessageForView NOTIFY openMessageChanged)
    // Backups (AppStoreBackup.cpp).
    Q_PROPERTY(QVariantMap backup READ backupForView NOTIFY backupChanged)
    Q_PROPERTY(QVariantMap ledger READ ledgerForView NOTIFY ledgerChanged)
    Q_PROPERTY(QVariantMap backupProblems READ backupProblemsForView NOTIFY backupProblemsChanged)
    Q_PROPERTY(bool showBackupActivity READ showBackupActivity WRITE setShowBackupActivity NOTIFY
                   showBackupActivityChanged)
    Q_PROPERTY(bool showAddAccount READ showAddAccount WRITE setShowAddAccount NOTIFY
                   showAddAccountChanged)
    // Freeing server space (AppStoreCleanup.cpp) and importing (AppStoreImport.cpp).
    Q_PROPERTY(QObject* cleanup READ cleanupObject CONSTANT)
    Q_PROPERTY(bool showFreeUp READ showFreeUp WRITE setShowFreeUp NOTIFY showFreeUpChanged)
    Q_PROPERTY(QVariant importMessage READ importMessageForView NOTIFY importMessageChanged)

public:
    /// How long a toast stays before it clears itself.
    static constexpr int toastMilliseconds = 2'600;

    /// Picks the vault root (QUERNSTEAD_ARCHIVE_DIR, then the "archiveRoot" setting, then
    /// Documents/Quernstead) and reads accounts and saved searches from it. Creates nothing on
    /// disk, apart from rewriting a readable filters file.
    explicit AppStore(QObject* parent = nullptr);
    /// Cancels a running scan; background work in flight finds the store gone and drops its
    /// results.
    ~AppStore() override;

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

    /// Stores the password (none for an account with a password command, whose stored one is
    /// removed), then adds the account (last; an account with the same id is replaced and
    /// moves to the end), saves and unfolds it in the sidebar. Throws the password store's
    /// error (KeychainError, std::system_error), or the vault's when the accounts file can't
    /// be written (std::system_error), and then changes nothing: the password stored for it
    /// is taken back (or the one it replaced put back).
    void addAccount(const MailAccount& account, const std::string& password);

    /// Replaces the account with the same id and saves; does nothing for an unknown id.
    void updateAccount(const MailAccount& account);

    /// Deletes the account's password, drops the account and saves, and says so in a toast.
    /// Its folders, message files and sync file stay on disk: removing never deletes mail.
    void removeAccount(const MailAccount& account);

    /// Removes the account with this id (see `removeAccount`); nothing for an unknown id.
    Q_INVOKABLE void removeAccountById(const QString& id);

    /// Creates the vault folder (a failure is ignored) and opens it in the file manager.
    Q_INVOKABLE void openArchiveInFinder();

    /// Makes another folder the vault, remembering it in the settings; moves nothing. Accounts
    /// come from the new vault (none if unreadable); saved searches too, but when the new
    /// vault has none readable the current ones stay and the next save carries them over.
    void changeArchiveRoot(const std::filesystem::path& root);

    /// Shows a passing notice; a new toast replaces the old one at once and restarts the clock.
    /// `tint` names a theme colour.
    Q_INVOKABLE void showToast(const QString& text, const QString& symbol,
                               const QString& tint = QStringLiteral("accent"));

    /// Clears the toast now (a tap on it).
    Q_INVOKABLE void dismissToast() { clearToast(); }

    /// Folds or unfolds an account (by its folder name) in the sidebar.
    Q_INVOKABLE void setAccountExpanded(const QString& directoryName, bool expanded);

    QString archiveRoot() const;
    QVariantList accountsForView() const;
    QStringList expandedAccountsForView() const;
    void setExpandedAccounts(const QStringList& names);
    QVariantList savedSearchesForView() const;
    QVariant toastForView() const;

    // ---- Browsing the vault (AppStoreBrowsing.cpp). Main thread only; nothing throws. ----

    /// How far a running scan is: files read of those that need reading.
    struct Indexing {
        size_t done = 0;
        size_t total = 0;
        friend bool operator==(const Indexing&, const Indexing&) = default;
    };

    /// Starts a background scan that loads the index file and reconciles it with the message
    /// files, publishing records as it goes and the new index at its end; cancels a scan in
    /// flight. `scanFinished` tells when a scan has published its end.
    void reloadArchive();

    /// Whether a scan that finds the list empty first shows the records of the index as last
    /// saved, once loaded (on by default: a window sees its list before the walk of the files).
    /// A program that waits for the scan's end anyway turns it off and saves the work.
    void setListFromCacheFirst(bool enabled) { listFromCacheFirst_ = enabled; }
    /// A scan was started and hasn't published its end yet (it may not have counted the files
    /// yet either, so `indexing` can still be empty).
    bool scanPending() const { return scanTask_.has_value(); }

    /// All live messages, newest first.
    const std::vector<RecordRef>& records() const { return catalog_->records; }
    /// The list now shown, and the same by month.
    const std::vector<RecordRef>& visible() const { return *visible_; }
    const std::vector<MonthGroup>& groups() const { return list_->groups(); }
    int groupsVersion() const { return groupsVersion_; }
    int listEpoch() const { return listEpoch_; }
    int visibleCount() const { return static_cast<int>(visible_->size()); }
    const SidebarItem& sidebar() const { return sidebar_; }
    const std::string& query() const { return query_; }
    const std::optional<std::string>& selectedPath() const { return selectedPath_; }
    const std::optional<Indexing>& indexing() const { return indexing_; }
    const std::map<std::string, std::vector<FolderSummary>>& folders() const {
        return catalog_->folders;
    }
    const std::map<SmartFilter, int64_t>& smartCounts() const { return catalog_->smartCounts; }
    const std::vector<std::string>& recordAccounts() const { return catalog_->accounts; }
    int64_t totalBytes() const { return catalog_->totalBytes; }
    const std::set<std::string>& knownDomains() const { return catalog_->knownDomains; }
    const std::map<std::string, std::string>& knownNames() const { return catalog_->knownNames; }
    int scrubToken() const { return scrubToken_; }
    const SearchIndex& index() const { return index_; }
    TimelineModel& timeline() const { return *timeline_; }
    MessageListModel& messageListModel() const { return *list_; }

    /// Each setter runs `refreshVisible`.
    void setSidebar(SidebarItem item);
    void setQuery(std::string query);
    /// Runs `openSelected`, even when the path didn't change.
    void setSelectedPath(std::optional<std::string> path);

    /// Recomputes `visible`, `groups`, `groupsVersion`, the timeline's current month and,
    /// when the selection fell out of an unsearched list, the selection.
    void refreshVisible();
    /// `records` in month groups. Input whose months come in runs keeps its order (and the
    /// groups view `records` itself); otherwise each month's records are sorted newest first
    /// and the months newest first, in a list of their own. Pure.
    static MonthGroups group(RecordList records);
    /// Moves the selection by `delta` in `visible`, clamped to its ends; with no selection
    /// both directions land on the first message. Opens the result (again, at an end).
    Q_INVOKABLE void selectNext(int delta);
    /// The message list's row of the selection, or -1: found from the catalog in a list of
    /// everything, where searching a million rows by path would hold up each keystroke.
    Q_INVOKABLE int selectedRow() const;
    /// Asks the list to jump to `key`, or to the next older month with mail, or to the oldest.
    void scrub(MonthKey key);
    Q_INVOKABLE void scrubToOrdinal(int ordinal) { scrub(MonthKey::fromOrdinal(ordinal)); }
    /// Turns the trimmed query into a saved search, clears the query and shows the search.
    Q_INVOKABLE void saveCurrentSearch();
    /// Drops a saved search; when it is the one shown, the view becomes everything first.
    void removeSavedSearch(const UUID& id);
    Q_INVOKABLE void removeSavedSearchById(const QString& id) {
        if (auto uuid = UUID::parse(id.toStdString()))
            removeSavedSearch(*uuid);
    }
    QString sidebarTitle() const;
    /// "{n} messages · {size} · last checked {ago}", the last part only once a backup ran.
    QString vaultSummary() const;
    /// How many records have exactly this account and folder.
    Q_INVOKABLE int count(const QString& account, const QString& folderDir) const;
    /// The configured accounts' folders in their order, then the vault's other accounts.
    std::vector<std::string> archiveAccounts() const;

    Q_INVOKABLE void showEverything() { setSidebar(SidebarItem::everything()); }
    Q_INVOKABLE void showAccount(const QString& account) {
        setSidebar(SidebarItem::ofAccount(account.toStdString()));
    }
    Q_INVOKABLE void showFolder(const QString& account, const QString& folder) {
        setSidebar(SidebarItem::ofFolder(account.toStdString(), folder.toStdString()));
    }
    Q_INVOKABLE void showSmart(const QString& raw);
    Q_INVOKABLE void showSaved(const QString& id);

    QString queryForView() const { return QString::fromStdString(query_); }
    void setQueryFromView(const QString& query) { setQuery(query.toStdString()); }
    QString selectedPathForView() const;
    void setSelectedPathFromView(const QString& path);
    QVariant indexingForView() const;
    QVariantMap foldersForView() const;
    QStringList archiveAccountsForView() const;
    QObject* messageList() const { return list_; }
    QObject* timelineObject() const { return timeline_; }

    // ---- Opening a message (AppStoreOpening.cpp). ----

    const std::optional<OpenMessage>& openMessage() const { return openMessage_; }
    const std::set<std::string>& allowImagesFor() const { return allowImagesFor_; }
    Q_INVOKABLE void allowImages(const QString& path);
    const std::map<std::string, int64_t>& serverSizes() const { return serverSizes_; }
    /// Rebuilds `serverSizes` from the accounts' sync files; unreadable ones give nothing.
    void loadServerSizes();
    /// The server's size of each message file of these accounts, by vault path, as
    /// `loadServerSizes` reads it; touches nothing of a store, so any thread may call it.
    static std::map<std::string, int64_t> readServerSizes(const ArchiveLayout& layout,
                                                          const std::vector<MailAccount>& accounts);
    /// Shows the selected message's file in the desktop's file manager (the folder, when the
    /// file manager can't be asked to select it). Nothing with no selection.
    Q_INVOKABLE void revealSelected();
    /// The same for the message file at this vault path.
    Q_INVOKABLE void revealPath(const QString& path);
    /// What the reader shows of the open message, worded: header, trust, notes in their order,
    /// catalogue card, attachments, and the body as a document for the web view.
    QVariant openMessageForView() const;

    // ---- Backups (AppStoreBackup.cpp). Main thread only. ----

    /// Seconds between two looks of the scheduler.
    static constexpr int scheduleTickSeconds = 300;

    const BackupStatus& backup() const { return backup_; }
    /// "{directoryName}/{mailbox name}" → the folder's row; never cleared as a whole.
    const std::map<std::string, LedgerLine>& ledger() const { return ledger_; }
    /// Account label → its problem in the last run that included it.
    const std::map<std::string, FriendlyError::Message>& backupProblems() const {
        return backupProblems_;
    }
    bool showBackupActivity() const { return showBackupActivity_; }
    void setShowBackupActivity(bool show);
    bool showAddAccount() const { return showAddAccount_; }
    void setShowAddAccount(bool show);

    /// Backs up `only`, or every account in turn, on a worker thread; one account's failure
    /// never stops the others (it becomes that account's entry in `backupProblems`). During a
    /// run it only opens the activity sheet; with no account it opens the add-account sheet.
    /// Each account that succeeds gets its `lastBackup` and the vault is re-read; the end of
    /// the run sets `lastMessage`, `lastError`, shows a toast and emits `backupFinished`.
    void backUpNow(std::optional<MailAccount> only = std::nullopt);
    Q_INVOKABLE void backUpAll() { backUpNow(); }
    /// Backs up the account with this id; nothing for an unknown id.
    Q_INVOKABLE void backUpAccount(const QString& id);
    /// Asks the running backup to stop; it ends at its next check with "Stopped".
    Q_INVOKABLE void stopBackup() { backupTask_.cancel(); }

    /// Folds one report into `backup` and `ledger`.
    void apply(const BackupProgress& progress, const std::string& accountDir);

    /// Starts (or restarts) the repeating timer that runs `checkSchedule` every five minutes;
    /// the first look comes one tick after the start.
    void startScheduler();
    /// With "scheduleEnabled" on, no run going and accounts present: starts a backup of all
    /// accounts once `max(scheduleHours, 1)` hours have passed since the earliest `lastBackup`
    /// (accounts never backed up don't hold it back; with none, at once). An unset
    /// "scheduleHours" reads as 0, so as one hour.
    void checkSchedule(Date now = std::chrono::system_clock::now());

    QVariantMap backupForView() const;
    QVariantMap ledgerForView() const;
    QVariantMap backupProblemsForView() const;

    // ---- Freeing server space (AppStoreCleanup.cpp). Main thread only. ----

    CleanupModel& cleanup() const { return *cleanup_; }
    QObject* cleanupObject() const { return cleanup_; }
    bool showFreeUp() const { return showFreeUp_; }
    void setShowFreeUp(bool show);

    /// Resets the walk, then surveys `mailbox` for messages before `before` and verifies each
    /// copy at a pace the user can follow. Without a saved password only `error` is set and the
    /// stage stays `choose`; otherwise the stage goes to `verify`, where a failed survey shows
    /// its error. `busy` is false at the end of every path.
    void checkCleanup(const MailAccount& account, const std::string& mailbox, Date before);
    /// Releases the plan's verified messages. A stop or a failure keeps the stage at `release`
    /// with `error`, `released` and, when something left the server, `result`; success goes to
    /// `done` with `result` and a toast. Nothing without a plan or a password.
    void runCleanup(const MailAccount& account);
    /// Asks the running survey, verification or release to stop; during verification (before
    /// any release) the walk goes back to `choose`.
    Q_INVOKABLE void cancelCleanup();
    /// Stops whatever runs and clears the walk back to `choose`.
    Q_INVOKABLE void resetCleanup();
    /// Writes the summary of `released` messages (the first of `plan.verified()`); unless
    /// `partial`, moves to `done` and shows the toast.
    void finishCleanup(int64_t released, const CleanupPlan& plan, const MailAccount& account,
                       bool partial);

    // ---- Importing files (AppStoreImport.cpp). ----

    const std::optional<QString>& importMessage() const { return importMessage_; }
    QVariant importMessageForView() const;
    /// The paths of the last import that gave nothing, each with its reason
    /// (ImportWords::line words them); set just before `importMessage`.
    const std::vector<ImportOutcome>& importOutcomes() const { return importOutcomes_; }
    /// Files the mail of `.eml` and mbox files and Maildir folders below "Imported" on a
    /// worker thread (one ImportBatch, flushed once), then reports "Imported {n} message(s)"
    /// (with " · {m} skipped") in `importMessage` and a toast, re-reads the vault and emits
    /// `importFinished`. Unreadable files and blocks that aren't mail count as skipped; when
    /// nothing was filed the toast says why (ImportWords::nothingImported).
    void importFiles(const std::vector<std::filesystem::path>& files);
    /// `importFiles` for the file panel's choice; URLs that aren't local files are left out.
    Q_INVOKABLE void importFileUrls(const QList<QUrl>& urls);

signals:
    void layoutChanged();
    void accountsChanged();
    void expandedAccountsChanged();
    void savedSearchesChanged();
    void toastChanged();
    // Browsing and opening.
    void queryChanged();
    void selectedPathChanged();
    void sidebarChanged();
    void recordsChanged();
    void visibleChanged();
    void groupsChanged();
    void indexingChanged();
    void foldersChanged();
    void archiveAccountsChanged();
    void openMessageChanged();
    /// A scan published its final state (after `records` and `index` were replaced).
    void scanFinished();
    // Backups, freeing space, importing.
    void backupChanged();
    void ledgerChanged();
    void backupProblemsChanged();
    void showBackupActivityChanged();
    void showAddAccountChanged();
    /// A backup run ended (after its toast).
    void backupFinished();
    void showFreeUpChanged();
    void importMessageChanged();
    /// An import published its counts (after its toast).
    void importFinished();

private:
    void saveFilters();
    void clearToast();

    ArchiveLayout layout_;
    std::vector<MailAccount> accounts_;
    std::set<std::string> expandedAccounts_;
    std::vector<SavedSearch> savedSearches_;
    std::optional<Toast> toast_;
    QTimer toastTimer_;

    // Browsing the vault.
    /// Forgets the old vault's index and records before a root change reloads.
    void clearArchive();
    /// Shows a catalog of records, built off the main thread by the scan. The catalog it replaces
    /// is let go on a worker thread: freeing a large one takes a while. `ofIndex` tells that it was
    /// built from the very index now in `index_`.
    void publishCatalog(std::shared_ptr<const RecordCatalog> catalog, bool ofIndex = false);
    void setIndexing(std::optional<Indexing> indexing);
    std::string effectiveQuery(const std::string& typed) const;

    SearchIndex index_;
    // Shared with the tasks that open messages, which read its familiar senders.
    std::shared_ptr<const RecordCatalog> catalog_ = std::make_shared<const RecordCatalog>();
    // Whether the catalog was built from `index_` itself, so that hits map by slot alone.
    bool catalogOfIndex_ = true;
    bool listFromCacheFirst_ = true;
    RecordList visible_ = std::make_shared<const std::vector<RecordRef>>();
    MessageListModel* list_ = new MessageListModel(this);
    TimelineModel* timeline_ = new TimelineModel(this);
    int groupsVersion_ = 0;
    int listEpoch_ = 0;
    SidebarItem sidebar_;
    std::string query_;
    std::optional<std::string> selectedPath_;
    std::optional<Indexing> indexing_;
    int scrubToken_ = 0;
    std::optional<std::stop_source> scanTask_;

    // Opening a message.
    void openSelected();

    std::optional<OpenMessage> openMessage_;
    // The body as the reader's web view takes it, made with the message off the main thread.
    QString openDocument_;
    bool openIsHtml_ = false;
    std::set<std::string> allowImagesFor_;
    std::map<std::string, int64_t> serverSizes_;

    // Backups, freeing space, importing.
    void finishBackup(int failures, int64_t newTotal, int64_t repaired, bool cancelled,
                      bool vaultChanged);
    /// The problem told for chosen folders the server no longer lists.
    static FriendlyError::Message vanishedProblem(const MailAccount& account,
                                                  const std::vector<std::string>& vanished);
    void backupSucceeded(const UUID& accountId);
    void setBackupProblem(const std::string& label, FriendlyError::Message message);
    /// Runs on the check's worker thread: verifies the plan round by round, publishing each.
    static void verifyProgressively(QPointer<AppStore> store, CleanupPlan plan,
                                    const ArchiveLayout& layout, std::stop_token stop);
    void setImportMessage(std::optional<QString> message);

    BackupStatus backup_;
    std::map<std::string, LedgerLine> ledger_;
    std::map<std::string, FriendlyError::Message> backupProblems_;
    bool showBackupActivity_ = false;
    bool showAddAccount_ = false;
    TaskHandle backupTask_;
    QTimer scheduleTimer_;
    CleanupModel* cleanup_ = new CleanupModel(this);
    TaskHandle cleanupTask_;
    bool showFreeUp_ = false;
    std::optional<QString> importMessage_;
    std::vector<ImportOutcome> importOutcomes_;
};

} // namespace qs
