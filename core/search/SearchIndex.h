#pragma once

#include "search/IndexFileMap.h"
#include "search/MessageRecord.h"
#include "search/PathTable.h"
#include "search/TokenTable.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// Every message record of the vault with an inverted index from words to records, persisted
/// as index.json. A pure cache of the message files: any index can be thrown away and built
/// again from them.
///
/// Records live in slots; a slot's number is its record's `id`. Removing a record leaves an
/// empty slot (a tombstone) so that the ids in the postings stay valid; `compact` squeezes the
/// tombstones out. Postings are ascending id lists per token and may name tombstones, which
/// readers skip.
///
/// No locks: one thread at a time owns an index. `search` is const but fills lazily built
/// caches (the sorted tokens and the date order), so even searches must not run concurrently.
class SearchIndex {
public:
    /// What `makeRecord` builds: the record and the text to tokenise for it.
    struct Entry {
        MessageRecord record;
        std::string text;
    };

    /// An empty index.
    SearchIndex();
    ~SearchIndex();
    SearchIndex(SearchIndex&&) noexcept;
    SearchIndex& operator=(SearchIndex&&) noexcept;
    SearchIndex(const SearchIndex&) = delete;
    SearchIndex& operator=(const SearchIndex&) = delete;

    /// The index stored at `path`, or an empty index when the file can't be read, isn't valid
    /// JSON, isn't version 3 or has the wrong shape (an unknown trust string included).
    /// Never fails and reports nothing.
    static SearchIndex load(const std::filesystem::path& path) noexcept;

    /// Writes the index as compact JSON, atomically, creating the parent folders. When the
    /// file still is the one this index was loaded from or last saved to, only what changed
    /// since is written and the rest is copied (see IndexFileMap).
    /// Throws std::system_error or std::filesystem::filesystem_error.
    void save(const std::filesystem::path& path);

    /// The JSON text that `save` writes.
    std::string encode() const;

    /// The index encoded in `json`, or an empty index under the same rules as `load`.
    static SearchIndex decode(std::string_view json) noexcept;

    /// Enters a record and its search text. A record already present for the path is removed
    /// first, so a re-indexed file gets a new slot. Sets `record.id`.
    void add(MessageRecord record, std::string_view text);

    /// Turns the live record of `path` into a tombstone; an unknown path is ignored.
    /// Constant time: the postings are left alone.
    void remove(std::string_view path);

    /// The live record of `path`, or null. Valid until the index is next changed.
    const MessageRecord* record(std::string_view path) const;

    /// Copies of all live records, in slot order.
    std::vector<MessageRecord> liveRecords() const;

    /// The live records themselves, in slot order, shared rather than copied: a list built
    /// from them costs no second copy of the vault's records. The index never changes a
    /// record it has handed out.
    std::vector<std::shared_ptr<const MessageRecord>> sharedRecords() const;
    /// The live slots by path, for a list of `sharedRecords` to find paths without hashing
    /// every one again (a copy costs a memory copy; a new table, a pass over every record).
    const PathTable& slotsByPath() const { return byPath_; }

    /// Number of live records.
    size_t count() const { return byPath_.size(); }

    /// Number of slots, live and tombstones together.
    size_t slotCount() const { return records_.size(); }

    /// The record in slot `id`, or null for a tombstone or an id out of range.
    const MessageRecord* slot(int64_t id) const;

    /// The live records that match every word of `query` as a prefix, newest first (records of
    /// the same date in no defined order). A query without tokens finds nothing. The pointers
    /// stay valid until the index is next changed.
    std::vector<const MessageRecord*> search(std::string_view query) const;

    /// Tombstones are put off until they outnumber the live records by more than this many, so
    /// that compaction stays rare.
    static constexpr size_t compactionSlack = 100;

    /// Whether the slots exceed twice the live records plus `compactionSlack`: the point at
    /// which a reconciliation pass compacts before saving.
    bool needsCompaction() const { return slotCount() > 2 * count() + compactionSlack; }

    /// Removes the tombstones: live records get consecutive ids in slot order, postings are
    /// renumbered, tokens left without a record disappear.
    void compact();

    /// The tokens of `text`, in text order with duplicates (see Tokenizer::scan).
    static std::vector<std::string> tokenize(std::string_view text);

    /// Builds the record of one message file from its bytes, vault-relative path and
    /// modification time (seconds since 1970). Never fails: rubbish yields a record with empty
    /// fields, `date` equal to `mtime` and `size` the byte count.
    static Entry makeRecord(std::string_view data, std::string_view path, double mtime);

    /// Ids of a token's posting list (tombstones included); empty for an unknown token.
    std::vector<int64_t> postings(std::string_view token) const;

    /// Every token with its posting list, for round-trip checks.
    std::map<std::string, std::vector<int64_t>> allPostings() const;

    /// Number of distinct tokens.
    size_t tokenCount() const { return tokens_.size(); }

    /// Bytes held by the index structures (approximate), for benchmarks.
    size_t memoryUsage() const;

private:
    friend class SearchIndexCoder;
    friend class SearchCache;
    friend class IndexFilePatch;
    friend struct SearchCacheDelta;

    /// Writes index.json, patched when the map beside it allows, and returns the new file's
    /// map (stamped). Changes nothing in the index: the cache writer reads it meanwhile.
    IndexFileMap writeFile(const std::filesystem::path& path) const;
    /// Notes that index.json now holds exactly this index.
    void markSaved();
    /// `markSaved`, and keeps `map` of the file beside it for the next save.
    void savedAs(const IndexFileMap& map, const std::filesystem::path& path);

    std::span<const uint32_t> tokensWithPrefix(std::string_view prefix) const;
    const std::vector<uint32_t>& sortedTokens() const;
    void buildDateOrder() const;
    void rebuildByPath();
    std::string_view pathOf(uint32_t id) const { return records_[id]->path; }
    auto pathReader() const {
        return [this](uint32_t id) {
            return pathOf(id);
        };
    }

    // Shared so that sharedRecords can hand them out; a record shared that way is copied
    // before it changes (only compact changes one).
    std::vector<std::shared_ptr<MessageRecord>> records_;
    // Live records by path.
    PathTable byPath_;
    TokenTable tokens_;
    std::vector<std::vector<uint32_t>> postings_;

    // Lazily built caches: the sorted tokens, dropped by compact and brought up to date
    // with the tokens added since when next used; the date order, dropped by add and compact
    // (a removal leaves both valid, since tombstones are skipped at the end of a search).
    mutable std::optional<std::vector<uint32_t>> sortedTokens_;
    // rank_[id] is the slot's position in date order, newest first; byRank_ its inverse.
    mutable std::vector<uint32_t> rank_;
    mutable std::vector<uint32_t> byRank_;
    mutable bool dateOrderValid_ = false;

    // What index.json held when the index was last read from it or saved to it: the first
    // `savedSlots_` slots (less those removed since) and `savedTokens_` tokens. Not valid
    // after a compaction, which moves every id, or for an index that wasn't loaded.
    uint32_t savedSlots_ = 0;
    uint32_t savedTokens_ = 0;
    std::vector<uint32_t> removedSinceSave_;
    bool savedValid_ = false;
    // The search cache this index was loaded from or last saved with, while it can take a
    // delta: none after a compaction.
    std::optional<SearchCacheLayout::Base> cacheBase_;
};

} // namespace qs
