#pragma once

#include "model/FolderSummary.h"
#include "model/MonthGroup.h"
#include "model/SmartFilter.h"
#include "search/PathTable.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

class SearchIndex;

/// The live records of the vault with everything the sidebar derives from them alone: the
/// costly half of a publication. It is built whole on any thread (the scan builds it on its
/// own) and then handed to the main thread, which only swaps it in. Immutable once built.
struct RecordCatalog {
    /// Newest first; records of the same date keep their order (a stable sort).
    std::vector<RecordRef> records;
    /// Where each month's run of `records` begins, newest month first: the list's months
    /// when it shows everything, found here rather than on the main thread.
    std::vector<std::pair<MonthKey, size_t>> monthStarts;
    /// Each account's folders: "INBOX" first, then by the locale's order with numbers
    /// compared as numbers.
    std::map<std::string, std::vector<FolderSummary>> folders;
    /// Messages per smart filter, regardless of any query; "recent" as of the build.
    std::map<SmartFilter, int64_t> smartCounts;
    /// The distinct accounts of the records, ascending.
    std::vector<std::string> accounts;
    int64_t totalBytes = 0;
    /// Registrable domains seen at least twice on mail whose sender was proven.
    std::set<std::string> knownDomains;
    /// Lower-cased display names of proven mail, each with the one familiar domain it came
    /// from; a name seen under two domains has no entry.
    std::map<std::string, std::string> knownNames;

    /// The record at `path`, or null.
    const RecordRef* byPath(std::string_view path) const;
    /// The shared record for a search hit: found by its slot when the catalog was built from
    /// the index that answered (the usual case, and no string is hashed), else by its path.
    /// Null when the catalog doesn't hold it.
    const RecordRef* find(const MessageRecord& hit) const;
    /// The record in slot `id`, or null: for hits of the very index the catalog was built
    /// from, where no path needs comparing.
    const RecordRef* atSlot(int64_t id) const;

    /// Sorts `records` by date, newest first, and derives the rest.
    static RecordCatalog build(std::vector<MessageRecord> records);
    /// The same over records shared with an index (`SearchIndex::sharedRecords`), so that
    /// the list and the index hold one copy of the vault's records between them.
    static RecordCatalog build(std::vector<RecordRef> records);
    /// The live records of `index`, shared, with its table of paths reused.
    static RecordCatalog build(const SearchIndex& index);

private:
    static constexpr uint32_t none = PathTable::npos;
    /// A record's date, place in the input and slot, copied out for the sort.
    struct Key;
    /// What the pass over the records counts.
    struct Counts;

    /// Sorts `records` in and derives the rest; `slotsByPath`, when given, holds the slot of
    /// every record by path.
    static RecordCatalog build(std::vector<RecordRef> records, const PathTable* slotsByPath);
    /// Reads `records[begin, end)` once: their keys, and their counts into `counts`.
    static void count(const std::vector<RecordRef>& records, size_t begin, size_t end, Date now,
                      std::vector<Key>& keys, Counts& counts);
    void findPaths(const PathTable* slotsByPath);
    /// Everything else, from the counts: the folders, smart counts, accounts, familiar
    /// senders.
    void derive(const Counts& counts);

    /// Positions in `records` by path.
    PathTable paths_;
    /// Positions in `records` by index slot (`id`); `none` for empty slots.
    std::vector<uint32_t> bySlot_;
};

} // namespace qs
