#include "search/SearchCache.h"

#include "search/RankSets.h"
#include "search/SearchCacheDelta.h"
#include "search/SearchIndex.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <span>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace qs {

using namespace SearchCacheLayout;

namespace {

/// Thrown inside the reader when a check fails; never leaves this file.
struct Damaged {};

void require(bool condition) {
    if (!condition) {
        throw Damaged{};
    }
}

/// Sorts ids below 2^bits ascending. Long lists, those of common words that make up most of a
/// vault's postings, go by least-significant-digit radix, a few linear passes where a
/// comparison sort took most of a whole-index load.
void sortIds(std::vector<uint32_t>& ids, std::vector<uint32_t>& scratch, int bits) {
    constexpr size_t radixFrom = 256;
    constexpr int digitBits = 11;
    constexpr uint32_t digitMask = (1U << digitBits) - 1;
    if (ids.size() < radixFrom) {
        std::sort(ids.begin(), ids.end());
        return;
    }
    scratch.resize(ids.size());
    uint32_t* from = ids.data();
    uint32_t* to = scratch.data();
    for (int shift = 0; shift < bits; shift += digitBits) {
        std::array<size_t, digitMask + 1> starts{};
        for (size_t i = 0; i < ids.size(); ++i) {
            ++starts[(from[i] >> shift) & digitMask];
        }
        size_t total = 0;
        for (size_t& start : starts) {
            total += std::exchange(start, total);
        }
        for (size_t i = 0; i < ids.size(); ++i) {
            to[starts[(from[i] >> shift) & digitMask]++] = from[i];
        }
        std::swap(from, to);
    }
    if (from != ids.data()) {
        std::copy(from, from + ids.size(), ids.data());
    }
}

bool fits(const Section& s, uint64_t end) {
    return s.offset % 8 == 0 && s.offset >= pageSize && s.length <= end &&
           s.offset <= end - s.length;
}

} // namespace

struct SearchCache::Mapping {
    const char* base = nullptr;
    size_t size = 0;
    Header header{};
    const char* sums = nullptr;
    // One bit per data page, set once the page has matched its checksum. Atomic, so that
    // a whole-index load can read two sections at once (a page checked twice is harmless).
    mutable std::vector<std::atomic<uint64_t>> verified;

    ~Mapping() {
        if (base != nullptr) {
            ::munmap(const_cast<char*>(base), size);
        }
    }

    void verify(uint64_t page) const {
        auto& word = verified[page >> 6];
        uint64_t bit = uint64_t(1) << (page & 63);
        if ((word.load(std::memory_order_relaxed) & bit) != 0) {
            return;
        }
        uint32_t expected = 0;
        std::memcpy(&expected, sums + (page - 1) * 4, 4);
        require(checksum({base + page * pageSize, pageSize}) == expected);
        word.fetch_or(bit, std::memory_order_relaxed);
    }

    /// `length` bytes at `offset` within section `s`, their pages verified.
    std::string_view bytes(const Section& s, uint64_t offset, uint64_t length) const {
        require(offset <= s.length && length <= s.length - offset);
        if (length == 0) {
            return {};
        }
        uint64_t start = s.offset + offset;
        for (uint64_t page = start / pageSize; page <= (start + length - 1) / pageSize; ++page) {
            verify(page);
        }
        return {base + start, size_t(length)};
    }

    template <typename T>
    T item(const Section& s, uint64_t index) const {
        T value;
        std::memcpy(&value, bytes(s, index * sizeof(T), sizeof(T)).data(), sizeof(T));
        return value;
    }

    std::string_view tokenText(uint64_t n) const {
        auto entry = item<TokenEntry>(header.tokens, n);
        return bytes(header.tokenText, entry.textOffset, entry.textLength);
    }

    /// The bytes of token `t`'s postings: uint32 ranks.
    std::string_view postings(uint64_t t, uint64_t postingCount) const {
        uint64_t start = item<TokenEntry>(header.tokens, t).postingStart;
        uint64_t end = item<TokenEntry>(header.tokens, t + 1).postingStart;
        require(start <= end && end <= postingCount);
        return bytes(header.postings, start * 4, (end - start) * 4);
    }

    MessageRecord record(uint32_t rank) const {
        require(rank < header.recordCount);
        auto entry = item<RecordEntry>(header.records, rank);
        require(entry.trust <= uint8_t(SenderTrust::unknown) && entry.replyToMismatch <= 1 &&
                entry.hasSenderFlag <= 1);
        auto text = bytes(header.recordText, entry.textOffset, entry.textLength);
        MessageRecord r;
        std::string flag;
        std::array<std::string*, recordStringCount> fields;
        std::ranges::copy(recordStrings(r), fields.begin());
        fields.back() = &flag;
        for (std::string* s : fields) {
            require(text.size() >= 4);
            uint32_t length = 0;
            std::memcpy(&length, text.data(), 4);
            text.remove_prefix(4);
            require(length <= text.size());
            s->assign(text.substr(0, length));
            text.remove_prefix(length);
        }
        require(text.empty());
        r.id = entry.id;
        if (entry.hasSenderFlag != 0) {
            r.senderFlag = std::move(flag);
        }
        r.date = Date(std::chrono::duration_cast<Date::duration>(
            std::chrono::nanoseconds(entry.dateNanoseconds)));
        r.size = entry.size;
        r.attachments = entry.attachments;
        r.trackers = entry.trackers;
        r.remoteImages = entry.remoteImages;
        r.linkWarnings = entry.linkWarnings;
        r.mtime = entry.mtime;
        r.trust = SenderTrust(entry.trust);
        r.replyToMismatch = entry.replyToMismatch != 0;
        return r;
    }

    /// Tells the kernel how the mapping is about to be read: a whole-index load reads every
    /// page once, in order, and wants the file read ahead (from a cold disk, page by page
    /// costs several times as long); a search's lookups touch few pages, where reading ahead
    /// would be waste.
    void adviseWholeRead(bool whole) const {
        ::madvise(const_cast<char*>(base), size, whole ? MADV_SEQUENTIAL : MADV_RANDOM);
        if (whole) {
            ::madvise(const_cast<char*>(base), size, MADV_WILLNEED);
        }
    }

    /// Lets the kernel take back the pages of `s` wholly within [begin, end): a whole-index
    /// load reads every page once, and holding them all would add the cache's size to its
    /// peak memory. A page touched again is read back in (still verified), so this is never
    /// wrong.
    void release(const Section& s, uint64_t begin, uint64_t end) const {
        uint64_t first =
            (s.offset + std::min(begin, s.length) + pageSize - 1) / pageSize * pageSize;
        uint64_t last = (s.offset + std::min(end, s.length)) / pageSize * pageSize;
        if (last > first) {
            ::madvise(const_cast<char*>(base) + first, last - first, MADV_DONTNEED);
        }
    }
};

SearchCache::SearchCache(std::unique_ptr<Mapping> mapping, std::unique_ptr<SearchCacheDelta> delta)
    : mapping_(std::move(mapping)), delta_(std::move(delta)) {}
SearchCache::~SearchCache() = default;
SearchCache::SearchCache(SearchCache&&) noexcept = default;
SearchCache& SearchCache::operator=(SearchCache&&) noexcept = default;

size_t SearchCache::count() const {
    size_t count = size_t(mapping_->header.recordCount);
    return delta_ ? count - delta_->removedRanks.size() + delta_->added.count() : count;
}

std::optional<SearchCache> SearchCache::open(const std::filesystem::path& cache,
                                             const std::filesystem::path& json) noexcept {
    try {
        auto stamp = FileStamp::of(json);
        if (!stamp) {
            return std::nullopt;
        }
        int fd = ::open(cache.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            return std::nullopt;
        }
        struct ::stat facts {};
        bool statted = ::fstat(fd, &facts) == 0;
        auto size = statted ? uint64_t(facts.st_size) : 0;
        if (size < 2 * pageSize || size % 4 != 0) {
            ::close(fd);
            return std::nullopt;
        }
        void* base = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
        ::close(fd);
        if (base == MAP_FAILED) {
            return std::nullopt;
        }
        auto mapping = std::make_unique<Mapping>();
        mapping->base = static_cast<const char*>(base);
        mapping->size = size;
        Header& h = mapping->header;
        std::memcpy(&h, base, sizeof h);
        require(std::memcmp(h.magic, magic, sizeof magic) == 0 && h.version == version &&
                h.pageSize == pageSize && h.fileSize == size);
        require(checksum({mapping->base, offsetof(Header, headerChecksum)}) == h.headerChecksum);
        std::unique_ptr<SearchCacheDelta> delta;
        if (!(h.json == *stamp)) {
            auto read = SearchCacheDelta::read(SearchCacheDelta::beside(cache));
            if (!read || !(read->json == *stamp) || !(read->baseJSON == h.json) ||
                read->baseHeaderChecksum != h.headerChecksum || read->baseSlots != h.slotCount ||
                (!read->removedRanks.empty() && read->removedRanks.back() >= h.recordCount)) {
                return std::nullopt;
            }
            delta = std::make_unique<SearchCacheDelta>(std::move(*read));
        }

        const Section& sums = h.pageSums;
        require(sums.offset % pageSize == 0 && sums.offset >= pageSize && sums.offset <= size &&
                sums.length == size - sums.offset &&
                sums.length == (sums.offset / pageSize - 1) * 4);
        uint64_t dataEnd = sums.offset;
        for (const Section* s : {&h.tokens, &h.tokenText, &h.postings, &h.records, &h.recordText}) {
            require(fits(*s, dataEnd));
        }
        require(h.tokenCount < UINT32_MAX && h.recordCount < UINT32_MAX &&
                h.tokens.length == (h.tokenCount + 1) * sizeof(TokenEntry) &&
                h.records.length == h.recordCount * sizeof(RecordEntry) &&
                h.postings.length % 4 == 0);
        mapping->sums = mapping->base + sums.offset;
        require(checksum({mapping->sums, size_t(sums.length)}) == h.pageSumsChecksum);
        mapping->verified = std::vector<std::atomic<uint64_t>>(size_t(dataEnd / pageSize / 64 + 1));
        mapping->adviseWholeRead(false);
        return SearchCache(std::move(mapping), std::move(delta));
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<std::vector<uint32_t>> SearchCache::search(std::string_view query) const noexcept {
    try {
        const Mapping& m = *mapping_;
        const Header& h = m.header;
        std::vector<uint32_t> out;
        auto words = SearchIndex::tokenize(query);
        if (words.empty() || h.recordCount == 0) {
            return out;
        }
        uint64_t postingCount = h.postings.length / 4;
        auto found = RankSets::matchingAll(
            words, size_t(h.recordCount),
            [&](const std::string& word, std::vector<uint64_t>& bits) {
                uint64_t low = 0;
                uint64_t high = h.tokenCount;
                while (low < high) {
                    uint64_t mid = low + (high - low) / 2;
                    if (m.tokenText(mid) < word) {
                        low = mid + 1;
                    } else {
                        high = mid;
                    }
                }
                for (uint64_t t = low; t < h.tokenCount && m.tokenText(t).starts_with(word); ++t) {
                    auto ranks = m.postings(t, postingCount);
                    for (size_t i = 0; i < ranks.size(); i += 4) {
                        uint32_t rank = 0;
                        std::memcpy(&rank, ranks.data() + i, 4);
                        require(rank < h.recordCount);
                        RankSets::mark(bits, rank);
                    }
                }
            });
        if (delta_ && !found.empty()) {
            for (uint32_t rank : delta_->removedRanks) {
                found[rank >> 6] &= ~(uint64_t(1) << (rank & 63));
            }
        }
        RankSets::forEach(found, [&](uint32_t rank) { out.push_back(rank); });
        return out;
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<SearchCache::Answer> SearchCache::find(std::string_view query,
                                                     size_t limit) const noexcept {
    try {
        auto ranks = search(query);
        if (!ranks) {
            return std::nullopt;
        }
        std::vector<const MessageRecord*> added;
        if (delta_) {
            added = delta_->added.search(query);
        }
        Answer answer{ranks->size() + added.size(), merged(*ranks, added, limit)};
        return answer;
    } catch (...) {
        return std::nullopt;
    }
}

std::vector<MessageRecord> SearchCache::merged(const std::vector<uint32_t>& ranks,
                                               const std::vector<const MessageRecord*>& added,
                                               size_t limit) const {
    size_t total = ranks.size() + added.size();
    size_t wanted = limit == 0 ? total : std::min(limit, total);
    std::vector<MessageRecord> out;
    out.reserve(wanted);
    std::optional<MessageRecord> next;
    size_t i = 0;
    size_t j = 0;
    while (out.size() < wanted) {
        if (!next && i < ranks.size()) {
            next = mapping_->record(ranks[i]);
        }
        // On the same date the delta's record goes first: its slot is the later one.
        if (j < added.size() && (!next || added[j]->date >= next->date)) {
            out.push_back(*added[j++]);
            out.back().id += int64_t(delta_->baseSlots);
        } else {
            out.push_back(std::move(*next));
            next.reset();
            ++i;
        }
    }
    return out;
}

std::optional<MessageRecord> SearchCache::record(uint32_t rank) const noexcept {
    try {
        return mapping_->record(rank);
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<SearchIndex> SearchCache::index() const noexcept {
    try {
        const Mapping& m = *mapping_;
        const Header& h = m.header;
        m.adviseWholeRead(true);
        struct Readvise {
            const Mapping& m;
            ~Readvise() { m.adviseWholeRead(false); }
        } readvise{m};
        auto count = size_t(h.recordCount);
        // Slots keep the ids of index.json, tombstones included; postings that name tombstones
        // are not in the cache, and no reader could tell them apart from absent ones. The
        // bound on the slots keeps a damaged header from asking for a vast table.
        uint64_t slots = h.slotCount;
        require(slots >= count && slots < 4 * uint64_t(count) + 1024);
        SearchCacheLayout::Base base{
            h.json, h.headerChecksum, std::vector<uint32_t>(size_t(slots), Base::noRank), {}};
        std::vector<uint32_t> idOfRank(count);
        for (size_t rank = 0; rank < count; ++rank) {
            auto id = m.item<RecordEntry>(h.records, rank).id;
            require(id >= 0 && uint64_t(id) < slots && base.rankOfId[size_t(id)] == Base::noRank);
            idOfRank[rank] = uint32_t(id);
            base.rankOfId[size_t(id)] = uint32_t(rank);
        }
        // Ranks gone since the cache was written read as tombstones.
        std::vector<bool> gone(count);
        if (delta_) {
            base.removedRanks = delta_->removedRanks;
            for (uint32_t rank : base.removedRanks) {
                require(rank < count);
                gone[rank] = true;
            }
        }
        // Fills the tokens and their postings (ascending ids) from the token sections.
        auto readPostings = [&m, &h, &idOfRank, count, slots](
                                TokenTable& tokens, std::vector<std::vector<uint32_t>>& postings) {
            // Tokens come sorted and distinct (checked), which is the order index.json keeps too.
            uint64_t postingCount = h.postings.length / 4;
            tokens.reserve(size_t(h.tokenCount), size_t(h.tokenText.length));
            postings.reserve(size_t(h.tokenCount));
            std::string_view previous;
            uint64_t released = 0;
            std::vector<uint32_t> scratch;
            int idBits = std::bit_width(uint32_t(slots));
            for (uint64_t t = 0; t < h.tokenCount; ++t) {
                auto text = m.tokenText(t);
                require(!text.empty() && (t == 0 || previous < text));
                previous = text;
                tokens.appendUnchecked(text);
                auto ranks = m.postings(t, postingCount);
                auto& ids = postings.emplace_back(ranks.size() / 4);
                for (size_t i = 0; i < ids.size(); ++i) {
                    uint32_t rank = 0;
                    std::memcpy(&rank, ranks.data() + i * 4, 4);
                    require(rank < count);
                    ids[i] = idOfRank[rank];
                }
                sortIds(ids, scratch, idBits);
                if (t % 4096 == 4095) {
                    uint64_t next = m.item<TokenEntry>(h.tokens, t + 1).postingStart * 4;
                    m.release(h.postings, std::exchange(released, next), next);
                }
            }
            tokens.finishAppending();
        };
        SearchIndex index;
        index.records_.resize(size_t(slots));
        // Each path's hash is taken where its record is made, on either thread; the table is
        // filled from the hashes afterwards, reading a path only when two hashes meet.
        std::vector<uint32_t> pathHashes(static_cast<size_t>(slots));
        // The records are read in runs of ranks, each claimed by whichever thread is free: this
        // one from the start, the token reader once its tokens are in (they take less time).
        const size_t run = std::clamp<size_t>(count / 8, 64, 4096);
        std::atomic<size_t> nextRun{0};
        std::atomic<bool> failed{false};
        auto readRecords = [&] {
            for (size_t first; !failed && (first = nextRun.fetch_add(run)) < count;) {
                size_t end = std::min(first + run, count);
                for (size_t rank = first; rank < end; ++rank) {
                    if (gone[rank]) {
                        continue;
                    }
                    auto id = idOfRank[rank];
                    auto& slot = index.records_[id];
                    slot = std::make_shared<MessageRecord>(m.record(uint32_t(rank)));
                    pathHashes[id] = PathTable::hashOf(slot->path);
                }
                m.release(h.records, first * sizeof(RecordEntry), end * sizeof(RecordEntry));
                m.release(h.recordText, m.item<RecordEntry>(h.records, first).textOffset,
                          m.item<RecordEntry>(h.records, end - 1).textOffset);
            }
        };
        std::exception_ptr helperFailure;
        auto help = [&]() noexcept {
            try {
                readPostings(index.tokens_, index.postings_);
                readRecords();
            } catch (...) {
                helperFailure = std::current_exception();
                failed = true;
            }
        };
        std::thread helper;
        try {
            helper = std::thread(help);
        } catch (const std::system_error&) {
            help();
        }
        struct Joiner {
            std::thread& thread;
            std::atomic<bool>& failed;
            ~Joiner() {
                if (thread.joinable()) {
                    failed = true;
                    thread.join();
                }
            }
        } joiner{helper, failed};
        readRecords();
        if (helper.joinable()) {
            helper.join();
        }
        if (helperFailure) {
            return std::nullopt;
        }
        index.byPath_.reserve(count);
        for (uint32_t id = 0; id < index.records_.size(); ++id) {
            if (index.records_[id]) {
                require(index.byPath_.insert(id, pathHashes[id], index.pathReader()) ==
                        PathTable::npos);
            }
        }
        std::vector<uint32_t> order(index.tokens_.size());
        for (uint32_t n = 0; n < order.size(); ++n) {
            order[n] = n;
        }
        index.sortedTokens_ = std::move(order);
        if (delta_) {
            applyDelta(*delta_, index);
        }
        // The cache was found to describe index.json as it is: a save can patch that file, and
        // leave the cache in place with a delta beside it.
        index.markSaved();
        index.cacheBase_ = std::move(base);
        return index;
    } catch (...) {
        return std::nullopt;
    }
}

void SearchCache::applyDelta(const SearchCacheDelta& delta, SearchIndex& index) {
    const SearchIndex& added = delta.added;
    auto baseSlots = uint32_t(index.records_.size());
    for (const auto& r : added.records_) {
        auto id = uint32_t(index.records_.size());
        if (!r) {
            index.records_.push_back(nullptr);
            continue;
        }
        auto copy = std::make_shared<MessageRecord>(*r);
        copy->id = id;
        index.records_.push_back(std::move(copy));
        require(index.byPath_.assign(index.records_.back()->path, id, index.pathReader()) ==
                PathTable::npos);
    }
    // The delta's slots follow the file's, so its ids keep every posting list ascending.
    for (uint32_t n = 0; n < added.tokens_.size(); ++n) {
        bool isNew = false;
        uint32_t number = index.tokens_.intern(added.tokens_.token(n), &isNew);
        if (isNew) {
            index.postings_.emplace_back();
        }
        auto& list = index.postings_[number];
        for (uint32_t id : added.postings_[n]) {
            list.push_back(baseSlots + id);
        }
    }
}

SearchIndex SearchCache::loadIndex(const std::filesystem::path& cache,
                                   const std::filesystem::path& json) noexcept {
    if (auto opened = open(cache, json)) {
        if (auto index = opened->index()) {
            return std::move(*index);
        }
    }
    return SearchIndex::load(json);
}

std::optional<std::vector<MessageRecord>> SearchCache::records() const {
    try {
        std::vector<uint32_t> ranks;
        ranks.reserve(size_t(mapping_->header.recordCount));
        auto removed =
            delta_ ? std::span<const uint32_t>(delta_->removedRanks) : std::span<const uint32_t>();
        for (uint32_t rank = 0, k = 0; rank < mapping_->header.recordCount; ++rank) {
            if (k < removed.size() && removed[k] == rank) {
                ++k;
            } else {
                ranks.push_back(rank);
            }
        }
        std::vector<const MessageRecord*> added;
        if (delta_) {
            // Newest first, and on the same date the later slot first, as the file's ranks go.
            for (const auto& r : delta_->added.sharedRecords()) {
                added.push_back(r.get());
            }
            std::stable_sort(added.begin(), added.end(), [](const auto* a, const auto* b) {
                return a->date != b->date ? a->date > b->date : a->id > b->id;
            });
        }
        return merged(ranks, added, 0);
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<SearchCache::Answer> SearchCache::answer(const std::filesystem::path& cache,
                                                       const std::filesystem::path& json,
                                                       std::string_view query,
                                                       size_t limit) noexcept {
    for (bool rebuilt = false;; rebuilt = true) {
        if (auto opened = open(cache, json)) {
            if (auto found = opened->find(query, limit)) {
                return found;
            }
        }
        if (rebuilt) {
            return std::nullopt;
        }
        try {
            rebuild(cache, json);
        } catch (...) {
            return std::nullopt;
        }
    }
}

void SearchCache::rebuild(const std::filesystem::path& cache, const std::filesystem::path& json) {
    auto stamp = FileStamp::of(json);
    if (!stamp) {
        throw std::system_error(ENOENT, std::generic_category(), json.string());
    }
    auto index = SearchIndex::load(json);
    if (index.count() == 0) {
        // An unreadable index.json loads as an empty index: caching that would hide the vault
        // from every search until the next scan.
        throw std::system_error(EINVAL, std::generic_category(), json.string());
    }
    write(index, cache, *stamp);
}

} // namespace qs
