// The browsing half of AppStore: the scan that keeps the index in step with the disk, the
// sorted records, the sidebar's view, the query, the month groups and the sidebar's counts.

#include "model/AppStore.h"

#include "model/ArchiveScan.h"
#include "model/Fmt.h"
#include "safety/Domains.h"

#include <QCoreApplication>
#include <QLocale>
#include <QPointer>
#include <QThreadPool>
#include <algorithm>
#include <unicode/coll.h>
#include <unordered_map>

namespace qs {

namespace {

// Blanks and tabs only: a query's line ends are left alone.
std::string trimmedQuery(std::string_view text) {
    auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    auto last = text.find_last_not_of(" \t");
    return std::string(text.substr(first, last - first + 1));
}

// Runs `work` on the main thread, unless the store is gone or the scan was cancelled by
// then; the check happens on the main thread, where cancelling does, so it is exact.
template <typename Work>
void hop(QPointer<AppStore> store, std::stop_token stop, Work work) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [store, stop, work = std::move(work)]() mutable {
            if (store && !stop.stop_requested()) {
                work(*store);
            }
        },
        Qt::QueuedConnection);
}

QString text(std::string_view s) {
    return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

// The records shared and sorted by date, newest first, stably: the costly half of a
// publication, done by the scan on its own thread so the main thread only takes the result.
std::vector<RecordRef> sortedNewestFirst(std::vector<MessageRecord> records) {
    std::vector<RecordRef> shared;
    shared.reserve(records.size());
    for (auto& record : records) {
        shared.push_back(std::make_shared<const MessageRecord>(std::move(record)));
    }
    std::ranges::stable_sort(
        shared, [](const RecordRef& a, const RecordRef& b) { return a->date > b->date; });
    return shared;
}

} // namespace

AppStore::~AppStore() {
    if (scanTask_) {
        scanTask_->request_stop();
    }
}

void AppStore::clearArchive() {
    index_ = SearchIndex();
    records_.clear();
    recordsByPath_.clear();
    emit recordsChanged();
}

void AppStore::reloadArchive() {
    if (scanTask_) {
        scanTask_->request_stop();
    }
    std::stop_source source;
    scanTask_ = source;
    setIndexing(std::nullopt);

    QPointer<AppStore> store(this);
    auto root = layout_.root;
    auto indexFile = layout_.indexURL();
    auto stop = source.get_token();
    QThreadPool::globalInstance()->start([store, root, indexFile, stop] {
        ArchiveScan::Hooks hooks;
        hooks.started = [&](size_t total) {
            hop(store, stop, [total](AppStore& s) {
                s.setIndexing(total == 0 ? std::nullopt : std::optional(Indexing{0, total}));
            });
        };
        hooks.progress = [&](size_t done, size_t total, std::vector<MessageRecord> records) {
            auto sorted = sortedNewestFirst(std::move(records));
            hop(store, stop, [done, total, sorted = std::move(sorted)](AppStore& s) mutable {
                s.setIndexing(Indexing{done, total});
                s.publishSorted(std::move(sorted));
            });
        };
        auto result = ArchiveScan::run(root, indexFile, stop, hooks);
        if (!result) {
            return;
        }
        auto records = sortedNewestFirst(result->index.liveRecords());
        // The index crosses to the main thread whole; no other thread touches it afterwards.
        auto index = std::make_shared<SearchIndex>(std::move(result->index));
        hop(store, stop, [index, records = std::move(records)](AppStore& s) mutable {
            s.index_ = std::move(*index);
            s.scanTask_.reset();
            s.loadServerSizes();
            s.publishSorted(std::move(records));
            s.setIndexing(std::nullopt);
            emit s.scanFinished();
        });
    });
}

void AppStore::setIndexing(std::optional<Indexing> indexing) {
    if (indexing != indexing_) {
        indexing_ = indexing;
        emit indexingChanged();
    }
}

void AppStore::publishRecords(std::vector<MessageRecord> records) {
    publishSorted(sortedNewestFirst(std::move(records)));
}

void AppStore::publishSorted(std::vector<RecordRef> records) {
    records_ = std::move(records);
    recordsByPath_.clear();
    recordsByPath_.reserve(records_.size());
    for (const auto& record : records_) {
        recordsByPath_.emplace(record->path, record);
    }
    refreshCaches();
    learnSenders();
    emit recordsChanged();
    emit archiveAccountsChanged();
    refreshVisible();
}

void AppStore::refreshCaches() {
    folders_ = computeFolders();
    emit foldersChanged();

    smartCounts_.clear();
    for (auto filter : SmartFilters::all) {
        auto now = std::chrono::system_clock::now();
        smartCounts_[filter] = std::ranges::count_if(
            records_, [&](const RecordRef& r) { return SmartFilters::contains(filter, *r, now); });
    }

    std::set<std::string_view> accounts;
    totalBytes_ = 0;
    for (const auto& record : records_) {
        accounts.insert(record->account);
        totalBytes_ += record->size;
    }
    recordAccounts_.assign(accounts.begin(), accounts.end());
}

std::map<std::string, std::vector<FolderSummary>> AppStore::computeFolders() const {
    std::map<std::string_view, std::map<std::string_view, int64_t>> tally;
    for (const auto& record : records_) {
        ++tally[record->account][record->folder];
    }
    // The desktop's order for names: the locale's collation with digits compared as numbers
    // ("Box 9" before "Box 10"). ICU directly, since Qt's collator gives plain code-point
    // order under the C locale; for a C or POSIX locale the root collation stands in, as ICU's
    // POSIX tailoring would sort capitals before all small letters.
    icu::Locale locale = icu::Locale::getDefault();
    if (std::string_view(locale.getVariant()) == "POSIX" || *locale.getLanguage() == '\0') {
        locale = icu::Locale::getRoot();
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(locale, status));
    if (collator) {
        collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    }
    auto before = [&](const std::string& a, const std::string& b) {
        if (!collator) {
            return a < b;
        }
        UErrorCode error = U_ZERO_ERROR;
        return collator->compareUTF8(a, b, error) == UCOL_LESS;
    };
    std::map<std::string, std::vector<FolderSummary>> folders;
    for (const auto& [account, counts] : tally) {
        std::vector<FolderSummary> summaries;
        for (const auto& [folder, count] : counts) {
            summaries.push_back({std::string(account), std::string(folder), count});
        }
        std::ranges::sort(summaries, [&](const FolderSummary& a, const FolderSummary& b) {
            bool aInbox = a.folder == "INBOX";
            bool bInbox = b.folder == "INBOX";
            if (aInbox != bInbox) {
                return aInbox;
            }
            return before(a.folder, b.folder);
        });
        folders[std::string(account)] = std::move(summaries);
    }
    return folders;
}

void AppStore::learnSenders() {
    // A domain or a name becomes familiar only from mail whose sender was proven, seen twice.
    constexpr int64_t familiarCount = 2;
    std::map<std::string, int64_t> domains;
    std::map<std::string, std::map<std::string, int64_t>> names;
    for (const auto& record : records_) {
        if (record->trust != SenderTrust::verified) {
            continue;
        }
        std::string_view email = record->fromEmail;
        std::string_view last;
        size_t start = 0;
        while (start <= email.size()) {
            size_t at = email.find('@', start);
            auto piece =
                email.substr(start, at == std::string_view::npos ? email.npos : at - start);
            if (!piece.empty()) {
                last = piece;
            }
            if (at == std::string_view::npos) {
                break;
            }
            start = at + 1;
        }
        if (last.empty()) {
            continue;
        }
        std::string domain = Domains::registrable(last);
        ++domains[domain];
        if (!record->fromName.empty()) {
            ++names[QString::fromStdString(record->fromName).toLower().toStdString()][domain];
        }
    }
    knownDomains_.clear();
    for (const auto& [domain, count] : domains) {
        if (count >= familiarCount) {
            knownDomains_.insert(domain);
        }
    }
    knownNames_.clear();
    for (const auto& [name, byDomain] : names) {
        if (byDomain.size() == 1 && domains[byDomain.begin()->first] >= familiarCount) {
            knownNames_.emplace(name, byDomain.begin()->first);
        }
    }
}

std::string AppStore::effectiveQuery(const std::string& typed) const {
    if (sidebar_.kind == SidebarItem::Kind::saved) {
        auto found = std::ranges::find(savedSearches_, sidebar_.saved, &SavedSearch::id);
        if (found != savedSearches_.end()) {
            if (found->query.empty()) {
                return typed;
            }
            return typed.empty() ? found->query : found->query + " " + typed;
        }
    }
    return typed;
}

void AppStore::refreshVisible() {
    std::string typed = trimmedQuery(query_);
    std::string effective = effectiveQuery(typed);

    auto keep = [&](const MessageRecord& r) {
        switch (sidebar_.kind) {
        case SidebarItem::Kind::account:
            return r.account == sidebar_.account;
        case SidebarItem::Kind::folder:
            return r.account == sidebar_.account && r.folder == sidebar_.folder;
        case SidebarItem::Kind::smart:
            return SmartFilters::contains(sidebar_.smart, r);
        case SidebarItem::Kind::saved:
        case SidebarItem::Kind::all:
            return true;
        }
        return true;
    };
    std::vector<RecordRef> visible;
    if (effective.empty()) {
        bool everything =
            sidebar_.kind == SidebarItem::Kind::all || sidebar_.kind == SidebarItem::Kind::saved;
        if (everything) {
            visible = records_;
        } else {
            for (const auto& record : records_) {
                if (keep(*record)) {
                    visible.push_back(record);
                }
            }
        }
    } else {
        for (const MessageRecord* hit : index_.search(effective)) {
            if (!keep(*hit)) {
                continue;
            }
            auto found = recordsByPath_.find(hit->path);
            // During a scan the index may know a record the list doesn't hold yet.
            visible.push_back(found != recordsByPath_.end()
                                  ? found->second
                                  : std::make_shared<const MessageRecord>(*hit));
        }
    }
    visible_ = std::move(visible);
    list_->setGroups(group(visible_));
    ++groupsVersion_;
    emit visibleChanged();
    emit groupsChanged();

    const auto& groups = list_->groups();
    auto current = timeline_->currentMonth();
    bool present = current && std::ranges::any_of(
                                  groups, [&](const MonthGroup& g) { return g.key == *current; });
    if (!present) {
        timeline_->setCurrentMonth(groups.empty() ? std::nullopt
                                                  : std::optional(groups.front().key));
    }

    if (!selectedPath_) {
        return;
    }
    if (std::ranges::any_of(visible_,
                            [&](const RecordRef& r) { return r->path == *selectedPath_; })) {
        return;
    }
    if (!typed.empty()) {
        // Typing keeps the message being read open though the search filtered it away.
        return;
    }
    setSelectedPath(visible_.empty() ? std::nullopt : std::optional(visible_.front()->path));
}

std::vector<MonthGroup> AppStore::group(const std::vector<RecordRef>& records) {
    std::vector<MonthGroup> groups;
    std::set<int> keys;
    MonthKeyFinder monthOf;
    for (const auto& record : records) {
        MonthKey key = monthOf(record->date);
        if (groups.empty() || groups.back().key != key) {
            groups.push_back({key, {}});
            keys.insert(key.ordinal());
        }
        groups.back().records.push_back(record);
    }
    if (keys.size() == groups.size()) {
        return groups;
    }
    std::map<int, MonthGroup, std::greater<>> merged;
    for (auto& g : groups) {
        auto& into = merged.try_emplace(g.key.ordinal(), MonthGroup{g.key, {}}).first->second;
        into.records.insert(into.records.end(), std::make_move_iterator(g.records.begin()),
                            std::make_move_iterator(g.records.end()));
    }
    groups.clear();
    for (auto& [ordinal, g] : merged) {
        std::ranges::stable_sort(
            g.records, [](const RecordRef& a, const RecordRef& b) { return a->date > b->date; });
        groups.push_back(std::move(g));
    }
    return groups;
}

void AppStore::selectNext(int delta) {
    if (visible_.empty()) {
        return;
    }
    long current = -1;
    if (selectedPath_) {
        auto found = std::ranges::find_if(
            visible_, [&](const RecordRef& r) { return r->path == *selectedPath_; });
        if (found != visible_.end()) {
            current = found - visible_.begin();
        }
    }
    long next = std::clamp(current + delta, 0L, static_cast<long>(visible_.size()) - 1);
    setSelectedPath(visible_[static_cast<size_t>(next)]->path);
}

void AppStore::scrub(MonthKey key) {
    const auto& groups = list_->groups();
    if (groups.empty()) {
        return;
    }
    auto found = std::ranges::find_if(
        groups, [&](const MonthGroup& g) { return g.key.ordinal() <= key.ordinal(); });
    MonthKey target = found != groups.end() ? found->key : groups.back().key;
    ++scrubToken_;
    timeline_->setScrubTarget(TimelineModel::ScrubTarget{target, scrubToken_});
    timeline_->setCurrentMonth(target);
}

void AppStore::saveCurrentSearch() {
    std::string typed = trimmedQuery(query_);
    if (typed.empty()) {
        return;
    }
    QString q = QString::fromStdString(typed);
    qsizetype first = q.front().isHighSurrogate() && q.size() > 1 ? 2 : 1;
    QString name = q.left(first).toUpper() + q.mid(first);
    SavedSearch search{UUID::random(), name.toStdString(), typed};
    auto searches = savedSearches_;
    searches.push_back(search);
    setSavedSearches(std::move(searches));
    setQuery({});
    setSidebar(SidebarItem::ofSaved(search.id));
    showToast(QStringLiteral("Saved “%1” to the sidebar").arg(name),
              QStringLiteral("magnifyingglass.circle.fill"), QStringLiteral("seal"));
}

void AppStore::removeSavedSearch(const UUID& id) {
    if (sidebar_.kind == SidebarItem::Kind::saved && sidebar_.saved == id) {
        setSidebar(SidebarItem::everything());
    }
    auto searches = savedSearches_;
    std::erase_if(searches, [&](const SavedSearch& s) { return s.id == id; });
    setSavedSearches(std::move(searches));
}

QString AppStore::sidebarTitle() const {
    switch (sidebar_.kind) {
    case SidebarItem::Kind::account:
        return text(sidebar_.account);
    case SidebarItem::Kind::folder:
        return text(sidebar_.folder);
    case SidebarItem::Kind::smart:
        return text(SmartFilters::title(sidebar_.smart));
    case SidebarItem::Kind::saved: {
        auto found = std::ranges::find(savedSearches_, sidebar_.saved, &SavedSearch::id);
        return found != savedSearches_.end() ? text(found->name) : QStringLiteral("Saved Search");
    }
    case SidebarItem::Kind::all:
        return QStringLiteral("Everything");
    }
    return {};
}

QString AppStore::vaultSummary() const {
    QLocale locale;
    auto n = static_cast<qint64>(records_.size());
    QStringList parts{locale.toString(n) +
                          (n == 1 ? QStringLiteral(" message") : QStringLiteral(" messages")),
                      locale.formattedDataSize(totalBytes_, 1, QLocale::DataSizeSIFormat)};
    std::optional<Date> last;
    for (const auto& account : accounts_) {
        if (account.lastBackup && (!last || *account.lastBackup > *last)) {
            last = account.lastBackup;
        }
    }
    if (last) {
        parts.append(QStringLiteral("last checked ") + Fmt::ago(*last));
    }
    return parts.join(QStringLiteral(" · "));
}

int AppStore::count(const QString& account, const QString& folderDir) const {
    auto a = account.toStdString();
    auto f = folderDir.toStdString();
    return static_cast<int>(std::ranges::count_if(
        records_, [&](const RecordRef& r) { return r->account == a && r->folder == f; }));
}

std::vector<std::string> AppStore::archiveAccounts() const {
    std::vector<std::string> names;
    for (const auto& account : accounts_) {
        names.push_back(account.directoryName());
    }
    for (const auto& name : recordAccounts_) {
        if (std::ranges::find(names, name) == names.end()) {
            names.push_back(name);
        }
    }
    return names;
}

void AppStore::setSidebar(SidebarItem item) {
    bool changed = item != sidebar_;
    sidebar_ = std::move(item);
    if (changed) {
        emit sidebarChanged();
    }
    refreshVisible();
}

void AppStore::setQuery(std::string query) {
    bool changed = query != query_;
    query_ = std::move(query);
    if (changed) {
        emit queryChanged();
    }
    refreshVisible();
}

void AppStore::setSelectedPath(std::optional<std::string> path) {
    bool changed = path != selectedPath_;
    selectedPath_ = std::move(path);
    if (changed) {
        emit selectedPathChanged();
    }
    openSelected();
}

void AppStore::showSmart(const QString& raw) {
    if (auto filter = SmartFilters::named(raw.toStdString())) {
        setSidebar(SidebarItem::ofSmart(*filter));
    }
}

void AppStore::showSaved(const QString& id) {
    if (auto uuid = UUID::parse(id.toStdString())) {
        setSidebar(SidebarItem::ofSaved(*uuid));
    }
}

QString AppStore::selectedPathForView() const {
    return selectedPath_ ? text(*selectedPath_) : QString();
}

void AppStore::setSelectedPathFromView(const QString& path) {
    setSelectedPath(path.isEmpty() ? std::nullopt : std::optional(path.toStdString()));
}

QVariant AppStore::indexingForView() const {
    if (!indexing_) {
        return {};
    }
    return QVariantMap{{"done", qint64(indexing_->done)}, {"total", qint64(indexing_->total)}};
}

QVariantMap AppStore::foldersForView() const {
    QVariantMap map;
    for (const auto& [account, summaries] : folders_) {
        QVariantList list;
        for (const auto& summary : summaries) {
            list.append(QVariantMap{{"account", text(summary.account)},
                                    {"folder", text(summary.folder)},
                                    {"count", qint64(summary.count)}});
        }
        map.insert(text(account), list);
    }
    return map;
}

QStringList AppStore::archiveAccountsForView() const {
    QStringList list;
    for (const auto& name : archiveAccounts()) {
        list.append(text(name));
    }
    return list;
}

} // namespace qs
