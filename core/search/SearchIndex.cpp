#include "search/SearchIndex.h"

#include "search/IndexFilePatch.h"
#include "search/MappedFile.h"
#include "search/RankSets.h"
#include "search/SearchIndexCoder.h"
#include "search/Tokenizer.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <cstring>
#include <simdjson.h>

namespace qs {

SearchIndex::SearchIndex() = default;
SearchIndex::~SearchIndex() = default;
SearchIndex::SearchIndex(SearchIndex&&) noexcept = default;
SearchIndex& SearchIndex::operator=(SearchIndex&&) noexcept = default;

SearchIndex SearchIndex::load(const std::filesystem::path& path) noexcept {
    try {
        // Mapped, not read: the file is the largest thing a load holds, and this way it is
        // neither copied nor zeroed first.
        MappedFile file(path, simdjson::SIMDJSON_PADDING);
        SearchIndex index;
        if (SearchIndexCoder::decodePadded(file.bytes(), index)) {
            index.markSaved();
        }
        return index;
    } catch (...) {
        return SearchIndex();
    }
}

SearchIndex SearchIndex::decode(std::string_view json) noexcept {
    try {
        simdjson::padded_string bytes(json);
        SearchIndex index;
        SearchIndexCoder::decodePadded(std::string_view(bytes.data(), bytes.size()), index);
        return index;
    } catch (...) {
        return SearchIndex();
    }
}

std::string SearchIndex::encode() const {
    return SearchIndexCoder::encode(*this);
}

void SearchIndex::save(const std::filesystem::path& path) {
    savedAs(writeFile(path), path);
}

void SearchIndex::savedAs(const IndexFileMap& map, const std::filesystem::path& path) {
    markSaved();
    try {
        map.write(IndexFileMap::beside(path));
    } catch (const std::exception&) {
        // The next save writes the whole file instead of a patch.
    }
}

IndexFileMap SearchIndex::writeFile(const std::filesystem::path& path) const {
    if (path.has_parent_path()) {
        std::filesystem::create_directories(path.parent_path());
    }
    std::optional<IndexFileMap> map;
    if (savedValid_) {
        if (auto old = IndexFileMap::read(IndexFileMap::beside(path))) {
            map = IndexFilePatch::write(*this, *old, path);
        }
    }
    if (!map) {
        // Streamed: at a million records the text is over half a gigabyte, never worth holding.
        map.emplace();
        AtomicFile::Stream file(path);
        SearchIndexCoder::encode(
            *this, [&](std::string_view piece) { file.append(piece); }, &*map);
        file.commit();
    }
    if (auto stamp = SearchCacheLayout::FileStamp::of(path)) {
        map->json = *stamp;
    }
    return std::move(*map);
}

void SearchIndex::markSaved() {
    savedSlots_ = uint32_t(records_.size());
    savedTokens_ = uint32_t(tokens_.size());
    removedSinceSave_.clear();
    savedValid_ = true;
}

void SearchIndex::add(MessageRecord record, std::string_view text) {
    remove(record.path);
    auto id = uint32_t(records_.size());
    record.id = id;
    records_.push_back(std::make_shared<MessageRecord>(std::move(record)));
    byPath_.assign(records_.back()->path, id, pathReader());

    Tokenizer::forEachToken(text, [&](std::string_view token) {
        bool isNew = false;
        uint32_t number = tokens_.intern(token, &isNew);
        if (isNew) {
            postings_.emplace_back();
        }
        auto& list = postings_[number];
        // The new id is the largest there is, so a token already entered for this record
        // sits at the end of its list: no per-record set is needed.
        if (list.empty() || list.back() != id) {
            list.push_back(id);
        }
    });
    // The sorted tokens stay: tokens new since are merged in when next asked for.
    dateOrderValid_ = false;
}

void SearchIndex::remove(std::string_view path) {
    uint32_t id = byPath_.erase(path, pathReader());
    if (id != PathTable::npos) {
        records_[id].reset();
        if (id < savedSlots_) {
            removedSinceSave_.push_back(id);
        }
    }
}

const MessageRecord* SearchIndex::record(std::string_view path) const {
    uint32_t id = byPath_.find(path, pathReader());
    return id == PathTable::npos ? nullptr : records_[id].get();
}

const MessageRecord* SearchIndex::slot(int64_t id) const {
    if (id < 0 || uint64_t(id) >= records_.size()) {
        return nullptr;
    }
    return records_[size_t(id)].get();
}

std::vector<MessageRecord> SearchIndex::liveRecords() const {
    std::vector<MessageRecord> out;
    out.reserve(count());
    for (const auto& r : records_) {
        if (r) {
            out.push_back(*r);
        }
    }
    return out;
}

std::vector<std::shared_ptr<const MessageRecord>> SearchIndex::sharedRecords() const {
    std::vector<std::shared_ptr<const MessageRecord>> out;
    out.reserve(count());
    for (const auto& r : records_) {
        if (r) {
            out.push_back(r);
        }
    }
    return out;
}

std::vector<std::string> SearchIndex::tokenize(std::string_view text) {
    std::vector<std::string> out;
    Tokenizer::forEachToken(text, [&](std::string_view token) { out.emplace_back(token); });
    return out;
}

const std::vector<uint32_t>& SearchIndex::sortedTokens() const {
    if (sortedTokens_ && sortedTokens_->size() < tokens_.size()) {
        // Tokens are numbered as they come, so those past the sorted ones are the new ones:
        // sorting only them and merging costs a pass, not a sort of every token.
        auto& sorted = *sortedTokens_;
        auto added = sorted.size();
        for (auto n = uint32_t(added); n < tokens_.size(); ++n) {
            sorted.push_back(n);
        }
        auto byText = [this](uint32_t a, uint32_t b) {
            return tokens_.token(a) < tokens_.token(b);
        };
        std::sort(sorted.begin() + std::ptrdiff_t(added), sorted.end(), byText);
        std::inplace_merge(sorted.begin(), sorted.begin() + std::ptrdiff_t(added), sorted.end(),
                           byText);
    }
    if (sortedTokens_) {
        return *sortedTokens_;
    }
    // Sorting by the first eight bytes as one big-endian integer settles nearly every
    // comparison without touching the strings; ties fall back to the rest of the bytes.
    // Tokens hold no NUL, so zero padding sorts a shorter token first, as plain order does.
    struct Key {
        uint64_t head;
        uint32_t number;
    };
    std::vector<Key> keys(tokens_.size());
    for (uint32_t n = 0; n < keys.size(); ++n) {
        auto token = tokens_.token(n);
        unsigned char bytes[8] = {};
        std::memcpy(bytes, token.data(), std::min<size_t>(8, token.size()));
        uint64_t head = 0;
        for (unsigned char b : bytes) {
            head = (head << 8) | b;
        }
        keys[n] = {head, n};
    }
    std::sort(keys.begin(), keys.end(), [this](const Key& a, const Key& b) {
        if (a.head != b.head) {
            return a.head < b.head;
        }
        auto ta = tokens_.token(a.number);
        auto tb = tokens_.token(b.number);
        return ta.substr(std::min<size_t>(8, ta.size())) <
               tb.substr(std::min<size_t>(8, tb.size()));
    });
    std::vector<uint32_t> sorted(keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
        sorted[i] = keys[i].number;
    }
    sortedTokens_ = std::move(sorted);
    return *sortedTokens_;
}

std::span<const uint32_t> SearchIndex::tokensWithPrefix(std::string_view prefix) const {
    const auto& sorted = sortedTokens();
    size_t low = 0;
    size_t high = sorted.size();
    while (low < high) {
        size_t mid = (low + high) / 2;
        if (tokens_.token(sorted[mid]) < prefix) {
            low = mid + 1;
        } else {
            high = mid;
        }
    }
    size_t end = low;
    while (end < sorted.size() && tokens_.token(sorted[end]).starts_with(prefix)) {
        ++end;
    }
    return std::span<const uint32_t>(sorted).subspan(low, end - low);
}

void SearchIndex::buildDateOrder() const {
    if (dateOrderValid_) {
        return;
    }
    // Search results come out in this order straight from a bitmap over ranks, so no query
    // ever sorts its results. Tombstones get ranks too and are skipped on the way out.
    std::vector<std::pair<int64_t, uint32_t>> keyed(records_.size());
    for (uint32_t id = 0; id < records_.size(); ++id) {
        int64_t when = records_[id] ? records_[id]->date.time_since_epoch().count() : INT64_MIN;
        keyed[id] = {when, id};
    }
    std::sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first > b.first : a.second > b.second;
    });
    rank_.assign(records_.size(), 0);
    byRank_.assign(records_.size(), 0);
    for (uint32_t r = 0; r < keyed.size(); ++r) {
        byRank_[r] = keyed[r].second;
        rank_[keyed[r].second] = r;
    }
    dateOrderValid_ = true;
}

std::vector<const MessageRecord*> SearchIndex::search(std::string_view query) const {
    std::vector<const MessageRecord*> out;
    auto words = tokenize(query);
    if (words.empty() || records_.empty()) {
        return out;
    }
    buildDateOrder();
    auto found = RankSets::matchingAll(words, records_.size(),
                                       [&](const std::string& word, std::vector<uint64_t>& bits) {
                                           for (uint32_t number : tokensWithPrefix(word)) {
                                               for (uint32_t id : postings_[number]) {
                                                   RankSets::mark(bits, rank_[id]);
                                               }
                                           }
                                       });
    RankSets::forEach(found, [&](uint32_t r) {
        if (const auto* record = records_[byRank_[r]].get()) {
            out.push_back(record);
        }
    });
    return out;
}

void SearchIndex::compact() {
    constexpr uint32_t gone = UINT32_MAX;
    std::vector<uint32_t> newID(records_.size(), gone);
    std::vector<std::shared_ptr<MessageRecord>> live;
    live.reserve(count());
    for (uint32_t id = 0; id < records_.size(); ++id) {
        if (records_[id]) {
            newID[id] = uint32_t(live.size());
            if (records_[id].use_count() > 1 && records_[id]->id != int64_t(live.size())) {
                records_[id] = std::make_shared<MessageRecord>(*records_[id]);
            }
            records_[id]->id = int64_t(live.size());
            live.push_back(std::move(records_[id]));
        }
    }
    records_ = std::move(live);
    rebuildByPath();

    TokenTable tokens;
    std::vector<std::vector<uint32_t>> postings;
    for (uint32_t n = 0; n < tokens_.size(); ++n) {
        auto& list = postings_[n];
        size_t kept = 0;
        for (uint32_t id : list) {
            if (id < newID.size() && newID[id] != gone) {
                list[kept++] = newID[id];
            }
        }
        if (kept == 0) {
            continue;
        }
        list.resize(kept);
        list.shrink_to_fit();
        tokens.intern(tokens_.token(n));
        postings.push_back(std::move(list));
    }
    tokens_ = std::move(tokens);
    postings_ = std::move(postings);
    sortedTokens_.reset();
    dateOrderValid_ = false;
    savedValid_ = false;
    cacheBase_.reset();
}

void SearchIndex::rebuildByPath() {
    byPath_.clear();
    byPath_.reserve(records_.size());
    for (uint32_t id = 0; id < records_.size(); ++id) {
        if (records_[id]) {
            byPath_.assign(records_[id]->path, id, pathReader());
        }
    }
}

std::vector<int64_t> SearchIndex::postings(std::string_view token) const {
    uint32_t number = tokens_.find(token);
    if (number == TokenTable::npos) {
        return {};
    }
    return {postings_[number].begin(), postings_[number].end()};
}

std::map<std::string, std::vector<int64_t>> SearchIndex::allPostings() const {
    std::map<std::string, std::vector<int64_t>> out;
    for (uint32_t n = 0; n < tokens_.size(); ++n) {
        out.emplace(std::string(tokens_.token(n)),
                    std::vector<int64_t>(postings_[n].begin(), postings_[n].end()));
    }
    return out;
}

size_t SearchIndex::memoryUsage() const {
    size_t bytes =
        tokens_.memoryUsage() + postings_.capacity() * sizeof(postings_[0]) + byPath_.memoryUsage();
    for (const auto& list : postings_) {
        bytes += list.capacity() * sizeof(uint32_t);
    }
    for (const auto& r : records_) {
        bytes += sizeof(r);
        if (r) {
            bytes += sizeof(MessageRecord) + r->path.capacity() + r->subject.capacity() +
                     r->snippet.capacity() + r->to.capacity() + r->fromName.capacity() +
                     r->fromEmail.capacity();
        }
    }
    return bytes;
}

} // namespace qs
