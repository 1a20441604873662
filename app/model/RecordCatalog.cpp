#include "model/RecordCatalog.h"

#include "safety/Domains.h"
#include "search/SearchIndex.h"

#include <QString>
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <thread>
#include <unicode/coll.h>
#include <unordered_map>

namespace qs {

namespace {

// A domain or a name becomes familiar only from mail whose sender was proven, seen twice.
constexpr int64_t familiarCount = 2;

// Below this many records a second thread costs more than it saves.
constexpr size_t parallelFrom = 50'000;

// The last non-empty piece of an address split at every "@": the part that names the domain.
std::string_view domainPart(std::string_view email) {
    std::string_view last;
    size_t start = 0;
    while (start <= email.size()) {
        size_t at = email.find('@', start);
        auto piece = email.substr(start, at == std::string_view::npos ? email.npos : at - start);
        if (!piece.empty()) {
            last = piece;
        }
        if (at == std::string_view::npos) {
            break;
        }
        start = at + 1;
    }
    return last;
}

// The desktop's order for names: the locale's collation with digits compared as numbers
// ("Box 9" before "Box 10"). ICU directly, since Qt's collator gives plain code-point order
// under the C locale; for a C or POSIX locale the root collation stands in, as ICU's POSIX
// tailoring would sort capitals before all small letters.
std::unique_ptr<icu::Collator> folderCollator() {
    icu::Locale locale = icu::Locale::getDefault();
    if (std::string_view(locale.getVariant()) == "POSIX" || *locale.getLanguage() == '\0') {
        locale = icu::Locale::getRoot();
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(locale, status));
    if (collator) {
        collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    }
    return collator;
}

} // namespace

struct RecordCatalog::Key {
    Date date;
    uint32_t place = 0;
    int64_t id = -1;
};

struct RecordCatalog::Counts {
    std::array<int64_t, SmartFilters::all.size()> smart{};
    std::map<std::string_view, std::unordered_map<std::string_view, int64_t>> folders;
    int64_t bytes = 0;
    /// One more than the highest slot.
    size_t slotCount = 0;
    /// Mail whose sender was proven, by the domain part of the address as written, and by
    /// display name and domain part.
    std::unordered_map<std::string_view, int64_t> hosts;
    std::unordered_map<std::string_view, std::unordered_map<std::string_view, int64_t>> names;

    void add(const Counts& other) {
        for (size_t f = 0; f < smart.size(); ++f) {
            smart[f] += other.smart[f];
        }
        for (const auto& [account, byFolder] : other.folders) {
            for (const auto& [folder, count] : byFolder) {
                folders[account][folder] += count;
            }
        }
        bytes += other.bytes;
        slotCount = std::max(slotCount, other.slotCount);
        for (const auto& [host, count] : other.hosts) {
            hosts[host] += count;
        }
        for (const auto& [name, byHost] : other.names) {
            for (const auto& [host, count] : byHost) {
                names[name][host] += count;
            }
        }
    }
};

void RecordCatalog::count(const std::vector<RecordRef>& records, size_t begin, size_t end, Date now,
                          std::vector<Key>& keys, Counts& counts) {
    for (size_t place = begin; place < end; ++place) {
        const MessageRecord& record = *records[place];
        keys[place] = {record.date, static_cast<uint32_t>(place), record.id};
        if (record.id >= 0) {
            counts.slotCount = std::max(counts.slotCount, static_cast<size_t>(record.id) + 1);
        }
        for (size_t f = 0; f < counts.smart.size(); ++f) {
            counts.smart[f] += SmartFilters::contains(SmartFilters::all[f], record, now) ? 1 : 0;
        }
        ++counts.folders[record.account][record.folder];
        counts.bytes += record.size;
        if (record.trust == SenderTrust::verified) {
            auto host = domainPart(record.fromEmail);
            if (!host.empty()) {
                ++counts.hosts[host];
                if (!record.fromName.empty()) {
                    ++counts.names[record.fromName][host];
                }
            }
        }
    }
}

RecordCatalog RecordCatalog::build(std::vector<MessageRecord> records) {
    std::vector<RecordRef> shared;
    shared.reserve(records.size());
    for (auto& record : records) {
        shared.push_back(std::make_shared<const MessageRecord>(std::move(record)));
    }
    return build(std::move(shared));
}

RecordCatalog RecordCatalog::build(std::vector<RecordRef> records) {
    return build(std::move(records), nullptr);
}

RecordCatalog RecordCatalog::build(const SearchIndex& index) {
    return build(index.sharedRecords(), &index.slotsByPath());
}

RecordCatalog RecordCatalog::build(std::vector<RecordRef> records, const PathTable* slotsByPath) {
    // The records are read in one pass, since at a million each visit of a record is a cache
    // miss, and in two halves on two threads; a half's counts are added to the other's.
    std::vector<Key> keys(records.size());
    Counts counts;
    size_t half = records.size() >= parallelFrom ? records.size() / 2 : records.size();
    auto now = std::chrono::system_clock::now();
    Counts secondHalf;
    std::thread helper;
    if (half < records.size()) {
        try {
            helper =
                std::thread([&] { count(records, half, records.size(), now, keys, secondHalf); });
        } catch (const std::system_error&) {
            half = records.size();
        }
    }
    count(records, 0, half, now, keys, counts);
    if (helper.joinable()) {
        helper.join();
        counts.add(secondHalf);
    }

    // Sorted by the keys copied out beside each record's place, so that the sort compares
    // neighbouring memory rather than following a pointer per comparison; the place breaks
    // ties, which makes the order that of a stable sort.
    std::ranges::sort(keys, [](const Key& a, const Key& b) {
        return a.date != b.date ? a.date > b.date : a.place < b.place;
    });
    RecordCatalog catalog;
    catalog.records.reserve(records.size());
    catalog.bySlot_.assign(counts.slotCount, none);
    MonthKeyFinder monthOf;
    for (const Key& key : keys) {
        MonthKey month = monthOf(key.date);
        auto at = static_cast<uint32_t>(catalog.records.size());
        if (catalog.monthStarts.empty() || catalog.monthStarts.back().first != month) {
            catalog.monthStarts.emplace_back(month, at);
        }
        if (key.id >= 0) {
            catalog.bySlot_[static_cast<size_t>(key.id)] = at;
        }
        catalog.records.push_back(std::move(records[key.place]));
    }
    catalog.findPaths(slotsByPath);
    catalog.derive(counts);
    return catalog;
}

const RecordRef* RecordCatalog::byPath(std::string_view path) const {
    uint32_t place =
        paths_.find(path, [this](uint32_t at) { return std::string_view(records[at]->path); });
    return place == none ? nullptr : &records[place];
}

const RecordRef* RecordCatalog::atSlot(int64_t id) const {
    if (id < 0 || static_cast<size_t>(id) >= bySlot_.size() ||
        bySlot_[static_cast<size_t>(id)] == none) {
        return nullptr;
    }
    return &records[bySlot_[static_cast<size_t>(id)]];
}

const RecordRef* RecordCatalog::find(const MessageRecord& hit) const {
    if (const RecordRef* candidate = atSlot(hit.id); candidate && (*candidate)->path == hit.path) {
        return candidate;
    }
    return byPath(hit.path);
}

void RecordCatalog::findPaths(const PathTable* slotsByPath) {
    if (slotsByPath) {
        // The index's table already holds every path with its slot: only the numbers change.
        paths_ = *slotsByPath;
        paths_.renumber([this](uint32_t slot) { return bySlot_[slot]; });
        return;
    }
    auto pathOf = [this](uint32_t at) {
        return std::string_view(records[at]->path);
    };
    paths_.reserve(records.size());
    for (size_t at = 0; at < records.size(); ++at) {
        paths_.assign(records[at]->path, static_cast<uint32_t>(at), pathOf);
    }
}

void RecordCatalog::derive(const Counts& counts) {
    for (size_t f = 0; f < counts.smart.size(); ++f) {
        smartCounts[SmartFilters::all[f]] = counts.smart[f];
    }
    totalBytes = counts.bytes;

    auto collator = folderCollator();
    auto before = [&](const std::string& a, const std::string& b) {
        if (!collator) {
            return a < b;
        }
        UErrorCode error = U_ZERO_ERROR;
        return collator->compareUTF8(a, b, error) == UCOL_LESS;
    };
    for (const auto& [account, byFolder] : counts.folders) {
        std::vector<FolderSummary> summaries;
        for (const auto& [folder, count] : byFolder) {
            summaries.push_back({std::string(account), std::string(folder), count});
        }
        // Byte order first, so that names the collation holds equal ("Box 01", "Box 1") come
        // in the same order every time.
        std::ranges::sort(summaries, {}, &FolderSummary::folder);
        std::ranges::stable_sort(summaries, [&](const FolderSummary& a, const FolderSummary& b) {
            bool aInbox = a.folder == "INBOX";
            bool bInbox = b.folder == "INBOX";
            if (aInbox != bInbox) {
                return aInbox;
            }
            return before(a.folder, b.folder);
        });
        folders[std::string(account)] = std::move(summaries);
        accounts.emplace_back(account);
    }

    // Proven senders were counted by the domain and name as written, so that the costly
    // steps (the registrable domain, the lower-casing) run once per distinct value.
    std::unordered_map<std::string_view, std::string> registrable;
    std::map<std::string, int64_t> domains;
    for (const auto& [host, count] : counts.hosts) {
        auto& domain = registrable[host] = Domains::registrable(host);
        domains[domain] += count;
    }
    std::map<std::string, std::map<std::string, int64_t>> names;
    for (const auto& [name, hosts] : counts.names) {
        auto& seen =
            names[QString::fromUtf8(name.data(), qsizetype(name.size())).toLower().toStdString()];
        for (const auto& [host, count] : hosts) {
            seen[registrable[host]] += count;
        }
    }
    for (const auto& [domain, count] : domains) {
        if (count >= familiarCount) {
            knownDomains.insert(domain);
        }
    }
    for (const auto& [name, byDomain] : names) {
        if (byDomain.size() == 1 && domains[byDomain.begin()->first] >= familiarCount) {
            knownNames.emplace(name, byDomain.begin()->first);
        }
    }
}

} // namespace qs
