#include "model/RecordCatalog.h"

#include "safety/Domains.h"

#include <QString>
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <unicode/coll.h>
#include <unordered_map>

namespace qs {

namespace {

// A domain or a name becomes familiar only from mail whose sender was proven, seen twice.
constexpr int64_t familiarCount = 2;

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

RecordCatalog RecordCatalog::build(std::vector<MessageRecord> records) {
    std::vector<RecordRef> shared;
    shared.reserve(records.size());
    for (auto& record : records) {
        shared.push_back(std::make_shared<const MessageRecord>(std::move(record)));
    }
    return build(std::move(shared));
}

RecordCatalog RecordCatalog::build(std::vector<RecordRef> records) {
    // Sorted by keys copied out beside each record's place, so that the sort compares
    // neighbouring memory rather than following a pointer per comparison; the place breaks
    // ties, which makes the order that of a stable sort.
    struct Key {
        Date date;
        uint32_t place;
    };
    std::vector<Key> keys(records.size());
    for (size_t i = 0; i < records.size(); ++i) {
        keys[i] = {records[i]->date, static_cast<uint32_t>(i)};
    }
    std::ranges::sort(keys, [](const Key& a, const Key& b) {
        return a.date != b.date ? a.date > b.date : a.place < b.place;
    });
    RecordCatalog catalog;
    catalog.records.reserve(records.size());
    MonthKeyFinder monthOf;
    for (const Key& key : keys) {
        MonthKey month = monthOf(key.date);
        if (catalog.monthStarts.empty() || catalog.monthStarts.back().first != month) {
            catalog.monthStarts.emplace_back(month, catalog.records.size());
        }
        catalog.records.push_back(std::move(records[key.place]));
    }
    catalog.derive();
    catalog.learnSenders();
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

// One pass over the records for everything counted from them: each record is read once, as
// at a million records each visit is a cache miss.
void RecordCatalog::derive() {
    auto now = std::chrono::system_clock::now();
    std::map<std::string_view, std::unordered_map<std::string_view, int64_t>> tally;
    std::array<int64_t, SmartFilters::all.size()> smart{};
    auto pathOf = [this](uint32_t at) {
        return std::string_view(records[at]->path);
    };
    paths_.reserve(records.size());
    for (size_t place = 0; place < records.size(); ++place) {
        const MessageRecord& record = *records[place];
        auto at = static_cast<uint32_t>(place);
        paths_.assign(record.path, at, pathOf);
        if (record.id >= 0) {
            auto slot = static_cast<size_t>(record.id);
            if (slot >= bySlot_.size()) {
                bySlot_.resize(std::max(slot + 1, records.size()), none);
            }
            bySlot_[slot] = at;
        }
        for (size_t f = 0; f < smart.size(); ++f) {
            smart[f] += SmartFilters::contains(SmartFilters::all[f], record, now) ? 1 : 0;
        }
        ++tally[record.account][record.folder];
        totalBytes += record.size;
    }
    for (size_t f = 0; f < smart.size(); ++f) {
        smartCounts[SmartFilters::all[f]] = smart[f];
    }

    auto collator = folderCollator();
    auto before = [&](const std::string& a, const std::string& b) {
        if (!collator) {
            return a < b;
        }
        UErrorCode error = U_ZERO_ERROR;
        return collator->compareUTF8(a, b, error) == UCOL_LESS;
    };
    for (const auto& [account, counts] : tally) {
        std::vector<FolderSummary> summaries;
        for (const auto& [folder, count] : counts) {
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
}

void RecordCatalog::learnSenders() {
    // Counted first by the domain and name as written, so that the costly steps (the
    // registrable domain, the lower-casing) run once per distinct value, not once per message.
    std::unordered_map<std::string_view, int64_t> byHost;
    std::unordered_map<std::string_view, std::unordered_map<std::string_view, int64_t>> byName;
    for (const auto& record : records) {
        if (record->trust != SenderTrust::verified) {
            continue;
        }
        auto host = domainPart(record->fromEmail);
        if (host.empty()) {
            continue;
        }
        ++byHost[host];
        if (!record->fromName.empty()) {
            ++byName[record->fromName][host];
        }
    }
    std::unordered_map<std::string_view, std::string> registrable;
    std::map<std::string, int64_t> domains;
    for (const auto& [host, count] : byHost) {
        auto& domain = registrable[host] = Domains::registrable(host);
        domains[domain] += count;
    }
    std::map<std::string, std::map<std::string, int64_t>> names;
    for (const auto& [name, hosts] : byName) {
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
