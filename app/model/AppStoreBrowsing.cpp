// The browsing half of AppStore: the scan that keeps the index in step with the disk, the
// sorted records, the sidebar's view, the query, the month groups and the sidebar's counts.

#include "model/AppStore.h"

#include "model/ArchiveScan.h"
#include "model/Fmt.h"

#include <QCoreApplication>
#include <QLocale>
#include <QPointer>
#include <QThreadPool>
#include <algorithm>
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

// Progress reaches the window every `ArchiveScan::publishEvery` files, but the list is
// published again only once it would grow by this fraction (1/n) of what it shows: each
// publication copies every record, so a fixed step would make a first scan of a large vault
// quadratic, while growth by a fraction keeps the copying within a few times the vault.
constexpr size_t interimGrowthDivisor = 4;

// Lets `value` go on a worker thread: freeing a vault's worth of records or a whole index
// would otherwise hold up the main thread for as long as it takes.
template <typename T>
void releaseInBackground(T value) {
    auto held = std::make_shared<T>(std::move(value));
    QThreadPool::globalInstance()->start([held]() mutable { held.reset(); });
}

} // namespace

AppStore::~AppStore() {
    if (scanTask_) {
        scanTask_->request_stop();
    }
}

void AppStore::clearArchive() {
    releaseInBackground(std::exchange(index_, SearchIndex()));
    releaseInBackground(std::exchange(catalog_, std::make_shared<const RecordCatalog>()));
    catalogOfIndex_ = true;
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
    auto layout = layout_;
    auto accounts = accounts_;
    auto stop = source.get_token();
    bool listEmpty = listFromCacheFirst_ && catalog_->records.empty();
    QThreadPool::globalInstance()->start([store, layout, accounts, stop, listEmpty] {
        ArchiveScan::Hooks hooks;
        // An empty list (a launch) shows the records of the index as last saved as soon as it
        // is loaded (from the search cache when fresh), while the scan reconciles it; the
        // list shares the index's records rather than holding a copy of them.
        if (listEmpty) {
            hooks.loaded = [&](const SearchIndex& index) {
                if (index.count() == 0) {
                    return;
                }
                auto catalog = std::make_shared<const RecordCatalog>(RecordCatalog::build(index));
                hop(store, stop, [catalog](AppStore& s) {
                    if (s.catalog_->records.empty()) {
                        s.publishCatalog(catalog);
                    }
                });
            };
        }
        hooks.started = [&](size_t total) {
            hop(store, stop, [total](AppStore& s) {
                s.setIndexing(total == 0 ? std::nullopt : std::optional(Indexing{0, total}));
            });
        };
        size_t published = 0;
        hooks.progress = [&](size_t done, size_t total, const SearchIndex& index) {
            std::shared_ptr<const RecordCatalog> catalog;
            if (index.count() >=
                published + std::max(ArchiveScan::publishEvery, published / interimGrowthDivisor)) {
                published = index.count();
                catalog = std::make_shared<const RecordCatalog>(RecordCatalog::build(index));
            }
            hop(store, stop, [done, total, catalog](AppStore& s) {
                s.setIndexing(Indexing{done, total});
                if (catalog) {
                    s.publishCatalog(catalog);
                }
            });
        };
        auto result = ArchiveScan::run(layout.root, layout.indexURL(), stop, hooks);
        if (!result) {
            return;
        }
        auto catalog = std::make_shared<const RecordCatalog>(RecordCatalog::build(result->index));
        // Read here rather than in the hop: an account's sync file can be large.
        auto sizes = std::make_shared<std::map<std::string, int64_t>>(
            AppStore::readServerSizes(layout, accounts));
        // The index crosses to the main thread whole; no other thread touches it afterwards.
        auto index = std::make_shared<SearchIndex>(std::move(result->index));
        hop(store, stop, [index, catalog, sizes](AppStore& s) {
            releaseInBackground(std::exchange(s.index_, std::move(*index)));
            s.scanTask_.reset();
            s.serverSizes_ = std::move(*sizes);
            s.publishCatalog(catalog, true);
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

void AppStore::publishCatalog(std::shared_ptr<const RecordCatalog> catalog, bool ofIndex) {
    auto previous = std::exchange(catalog_, std::move(catalog));
    catalogOfIndex_ = ofIndex;
    emit foldersChanged();
    emit recordsChanged();
    emit archiveAccountsChanged();
    refreshVisible();
    // After the list let go of its own references, so that the records die with the catalog.
    releaseInBackground(std::move(previous));
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
    MonthGroups grouped;
    RecordList visible;
    bool everything = effective.empty() && (sidebar_.kind == SidebarItem::Kind::all ||
                                            sidebar_.kind == SidebarItem::Kind::saved);
    if (everything) {
        // The catalog's own list and months: nothing of a vault's size happens here.
        grouped.records = RecordList(catalog_, &catalog_->records);
        visible = grouped.records;
        const auto& starts = catalog_->monthStarts;
        for (size_t m = 0; m < starts.size(); ++m) {
            size_t end = m + 1 < starts.size() ? starts[m + 1].second : catalog_->records.size();
            grouped.groups.push_back(
                {starts[m].first,
                 std::span(catalog_->records).subspan(starts[m].second, end - starts[m].second)});
        }
    } else {
        std::vector<RecordRef> kept;
        if (effective.empty()) {
            for (const auto& record : catalog_->records) {
                if (keep(*record)) {
                    kept.push_back(record);
                }
            }
        } else {
            auto hits = index_.search(effective);
            kept.reserve(hits.size());
            for (const MessageRecord* hit : hits) {
                if (!keep(*hit)) {
                    continue;
                }
                const RecordRef* found =
                    catalogOfIndex_ ? catalog_->atSlot(hit->id) : catalog_->find(*hit);
                // During a scan the index may know a record the list doesn't hold yet.
                kept.push_back(found ? *found : std::make_shared<const MessageRecord>(*hit));
            }
        }
        // The groups may regroup a search's months into a list of their own; `visible`
        // keeps the order the search gave.
        visible = std::make_shared<const std::vector<RecordRef>>(std::move(kept));
        grouped = group(visible);
    }
    // The old lists are let go only after the new ones are in place.
    auto previous = std::exchange(visible_, std::move(visible));
    auto previousGroups = list_->setGroups(std::move(grouped));
    releaseInBackground(std::make_pair(std::move(previous), std::move(previousGroups)));
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
    // In a list of everything, any record of the catalog is shown: no search of the list.
    bool shown = everything ? catalog_->byPath(*selectedPath_) != nullptr
                            : std::ranges::any_of(*visible_, [&](const RecordRef& r) {
                                  return r->path == *selectedPath_;
                              });
    if (shown) {
        return;
    }
    if (!typed.empty()) {
        // Typing keeps the message being read open though the search filtered it away.
        return;
    }
    setSelectedPath(visible_->empty() ? std::nullopt : std::optional(visible_->front()->path));
}

MonthGroups AppStore::group(RecordList records) {
    struct Run {
        MonthKey key;
        size_t begin;
    };
    std::vector<Run> runs;
    std::set<int> keys;
    MonthKeyFinder monthOf;
    for (size_t i = 0; i < records->size(); ++i) {
        MonthKey key = monthOf((*records)[i]->date);
        if (runs.empty() || runs.back().key != key) {
            runs.push_back({key, i});
            keys.insert(key.ordinal());
        }
    }
    if (keys.size() != runs.size()) {
        // Months come back more than once: the records are regrouped in a list of their own.
        std::map<int, std::vector<RecordRef>, std::greater<>> merged;
        for (size_t r = 0; r < runs.size(); ++r) {
            size_t end = r + 1 < runs.size() ? runs[r + 1].begin : records->size();
            auto& into = merged[runs[r].key.ordinal()];
            into.insert(into.end(), records->begin() + std::ptrdiff_t(runs[r].begin),
                        records->begin() + std::ptrdiff_t(end));
        }
        auto regrouped = std::make_shared<std::vector<RecordRef>>();
        regrouped->reserve(records->size());
        runs.clear();
        for (auto& [ordinal, month] : merged) {
            std::ranges::stable_sort(
                month, [](const RecordRef& a, const RecordRef& b) { return a->date > b->date; });
            runs.push_back({MonthKey::fromOrdinal(ordinal), regrouped->size()});
            regrouped->insert(regrouped->end(), month.begin(), month.end());
        }
        records = std::move(regrouped);
    }
    MonthGroups grouped{records, {}};
    grouped.groups.reserve(runs.size());
    for (size_t r = 0; r < runs.size(); ++r) {
        size_t end = r + 1 < runs.size() ? runs[r + 1].begin : records->size();
        grouped.groups.push_back(
            {runs[r].key, std::span(*records).subspan(runs[r].begin, end - runs[r].begin)});
    }
    return grouped;
}

void AppStore::selectNext(int delta) {
    const auto& visible = *visible_;
    if (visible.empty()) {
        return;
    }
    long current = -1;
    if (selectedPath_) {
        // A list of everything is the catalog's own, which knows each path's place; any other
        // list is searched.
        if (&visible == &catalog_->records) {
            if (const RecordRef* known = catalog_->byPath(*selectedPath_)) {
                current = known - visible.data();
            }
        } else {
            auto found = std::ranges::find_if(
                visible, [&](const RecordRef& r) { return r->path == *selectedPath_; });
            if (found != visible.end()) {
                current = found - visible.begin();
            }
        }
    }
    long next = std::clamp(current + delta, 0L, static_cast<long>(visible.size()) - 1);
    setSelectedPath(visible[static_cast<size_t>(next)]->path);
}

int AppStore::selectedRow() const {
    if (!selectedPath_) {
        return -1;
    }
    if (visible_.get() == &catalog_->records) {
        const RecordRef* known = catalog_->byPath(*selectedPath_);
        return known ? list_->rowOfPlace(size_t(known - catalog_->records.data())) : -1;
    }
    return list_->rowOfPath(QString::fromStdString(*selectedPath_));
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
    auto n = static_cast<qint64>(catalog_->records.size());
    QStringList parts{locale.toString(n) +
                          (n == 1 ? QStringLiteral(" message") : QStringLiteral(" messages")),
                      locale.formattedDataSize(catalog_->totalBytes, 1, QLocale::DataSizeSIFormat)};
    // This run's end when there was one, else the latest account's last backup.
    std::optional<Date> last = backup_.lastFinished;
    for (const auto& account : accounts_) {
        if (!backup_.lastFinished && account.lastBackup && (!last || *account.lastBackup > *last)) {
            last = account.lastBackup;
        }
    }
    if (last) {
        parts.append(QStringLiteral("last checked ") + Fmt::ago(*last));
    }
    return parts.join(QStringLiteral(" · "));
}

int AppStore::count(const QString& account, const QString& folderDir) const {
    auto summaries = catalog_->folders.find(account.toStdString());
    if (summaries == catalog_->folders.end()) {
        return 0;
    }
    auto found =
        std::ranges::find(summaries->second, folderDir.toStdString(), &FolderSummary::folder);
    return found == summaries->second.end() ? 0 : static_cast<int>(found->count);
}

std::vector<std::string> AppStore::archiveAccounts() const {
    std::vector<std::string> names;
    for (const auto& account : accounts_) {
        names.push_back(account.directoryName());
    }
    for (const auto& name : catalog_->accounts) {
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
    for (const auto& [account, summaries] : catalog_->folders) {
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
