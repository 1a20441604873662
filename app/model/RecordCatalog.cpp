#include "model/RecordCatalog.h"

#include "safety/Domains.h"

#include <QString>
#include <algorithm>
#include <chrono>
#include <memory>
#include <unicode/coll.h>

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
    RecordCatalog catalog;
    catalog.records = std::move(records);
    std::ranges::stable_sort(
        catalog.records, [](const RecordRef& a, const RecordRef& b) { return a->date > b->date; });
    catalog.byPath.reserve(catalog.records.size());
    for (const auto& record : catalog.records) {
        catalog.byPath.emplace(record->path, record);
        if (record->id >= 0) {
            auto slot = static_cast<size_t>(record->id);
            if (slot >= catalog.bySlot.size()) {
                catalog.bySlot.resize(slot + 1);
            }
            catalog.bySlot[slot] = record;
        }
    }
    catalog.refreshCaches();
    catalog.learnSenders();
    return catalog;
}

const RecordRef* RecordCatalog::atSlot(int64_t id) const {
    if (id < 0 || static_cast<size_t>(id) >= bySlot.size() || !bySlot[static_cast<size_t>(id)]) {
        return nullptr;
    }
    return &bySlot[static_cast<size_t>(id)];
}

const RecordRef* RecordCatalog::find(const MessageRecord& hit) const {
    if (const RecordRef* candidate = atSlot(hit.id); candidate && (*candidate)->path == hit.path) {
        return candidate;
    }
    auto found = byPath.find(hit.path);
    return found != byPath.end() ? &found->second : nullptr;
}

void RecordCatalog::refreshCaches() {
    folders = computeFolders(records);

    for (auto filter : SmartFilters::all) {
        auto now = std::chrono::system_clock::now();
        smartCounts[filter] = std::ranges::count_if(
            records, [&](const RecordRef& r) { return SmartFilters::contains(filter, *r, now); });
    }

    std::set<std::string_view> distinct;
    for (const auto& record : records) {
        distinct.insert(record->account);
        totalBytes += record->size;
    }
    accounts.assign(distinct.begin(), distinct.end());
}

std::map<std::string, std::vector<FolderSummary>>
RecordCatalog::computeFolders(const std::vector<RecordRef>& records) {
    std::map<std::string_view, std::map<std::string_view, int64_t>> tally;
    for (const auto& record : records) {
        ++tally[record->account][record->folder];
    }
    auto collator = folderCollator();
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

void RecordCatalog::learnSenders() {
    std::map<std::string, int64_t> domains;
    std::map<std::string, std::map<std::string, int64_t>> names;
    for (const auto& record : records) {
        if (record->trust != SenderTrust::verified) {
            continue;
        }
        auto last = domainPart(record->fromEmail);
        if (last.empty()) {
            continue;
        }
        std::string domain = Domains::registrable(last);
        ++domains[domain];
        if (!record->fromName.empty()) {
            ++names[QString::fromStdString(record->fromName).toLower().toStdString()][domain];
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
