#include "search/SearchCache.h"

#include "search/RankSets.h"
#include "search/SearchIndex.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
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
        for (std::string* s : {&r.path, &r.account, &r.folder, &r.subject, &r.fromName,
                               &r.fromEmail, &r.to, &r.snippet, &flag}) {
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

    /// Lets the kernel take back the pages of `s` before `offset`: a whole-index load reads
    /// every page once, and holding them all would add the cache's size to its peak memory.
    /// A page touched again is read back in (still verified), so this is never wrong.
    void release(const Section& s, uint64_t offset) const {
        uint64_t first = (s.offset + pageSize - 1) / pageSize * pageSize;
        uint64_t end = (s.offset + std::min(offset, s.length)) / pageSize * pageSize;
        if (end > first) {
            ::madvise(const_cast<char*>(base) + first, end - first, MADV_DONTNEED);
        }
    }
};

SearchCache::SearchCache(std::unique_ptr<Mapping> mapping) : mapping_(std::move(mapping)) {}
SearchCache::~SearchCache() = default;
SearchCache::SearchCache(SearchCache&&) noexcept = default;
SearchCache& SearchCache::operator=(SearchCache&&) noexcept = default;

size_t SearchCache::count() const {
    return size_t(mapping_->header.recordCount);
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
        if (!(h.json == *stamp)) {
            return std::nullopt;
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
        ::madvise(base, size, MADV_RANDOM);
        return SearchCache(std::move(mapping));
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
        RankSets::forEach(found, [&](uint32_t rank) { out.push_back(rank); });
        return out;
    } catch (...) {
        return std::nullopt;
    }
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
        auto count = size_t(h.recordCount);
        // Slots keep the ids of index.json, tombstones between them included; a trailing run
        // of tombstones and postings that only named tombstones are not in the cache, and no
        // reader could tell them apart from absent ones. The bound on the slots keeps a
        // damaged id from asking for a vast table.
        std::vector<uint32_t> idOfRank(count);
        uint64_t slots = 0;
        for (size_t rank = 0; rank < count; ++rank) {
            auto id = m.item<RecordEntry>(h.records, rank).id;
            require(id >= 0 && uint64_t(id) < 4 * uint64_t(count) + 1024);
            idOfRank[rank] = uint32_t(id);
            slots = std::max(slots, uint64_t(id) + 1);
        }
        // Fills the tokens and their postings (ascending ids) from the token sections.
        auto readPostings = [&m, &h, &idOfRank, count](
                                TokenTable& tokens, std::vector<std::vector<uint32_t>>& postings) {
            // Tokens come sorted and distinct (checked), which is the order index.json keeps too.
            uint64_t postingCount = h.postings.length / 4;
            tokens.reserve(size_t(h.tokenCount), size_t(h.tokenText.length));
            postings.reserve(size_t(h.tokenCount));
            std::string_view previous;
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
                std::sort(ids.begin(), ids.end());
                if (t % 4096 == 4095) {
                    uint64_t next = m.item<TokenEntry>(h.tokens, t + 1).postingStart;
                    m.release(h.postings, next * 4);
                }
            }
            tokens.finishAppending();
        };
        SearchIndex index;
        // The tokens and their postings are read on a second thread while this one reads the
        // records: the two halves share nothing but the mapping and take about as long.
        std::exception_ptr tokenFailure;
        auto readTokens = [&]() noexcept {
            try {
                readPostings(index.tokens_, index.postings_);
            } catch (...) {
                tokenFailure = std::current_exception();
            }
        };
        std::thread tokenReader;
        try {
            tokenReader = std::thread(readTokens);
        } catch (const std::system_error&) {
            readTokens();
        }
        struct Joiner {
            std::thread& thread;
            ~Joiner() {
                if (thread.joinable()) {
                    thread.join();
                }
            }
        } joiner{tokenReader};
        index.records_.resize(size_t(slots));
        index.byPath_.reserve(count);
        for (size_t rank = 0; rank < count; ++rank) {
            auto& slot = index.records_[idOfRank[rank]];
            require(!slot);
            slot = std::make_shared<MessageRecord>(m.record(uint32_t(rank)));
            require(index.byPath_.assign(slot->path, idOfRank[rank], index.pathReader()) ==
                    PathTable::npos);
            if (rank % 4096 == 4095) {
                m.release(h.records, (rank + 1) * sizeof(RecordEntry));
                m.release(h.recordText, m.item<RecordEntry>(h.records, rank).textOffset);
            }
        }

        if (tokenReader.joinable()) {
            tokenReader.join();
        }
        if (tokenFailure) {
            return std::nullopt;
        }
        std::vector<uint32_t> order(index.tokens_.size());
        for (uint32_t n = 0; n < order.size(); ++n) {
            order[n] = n;
        }
        index.sortedTokens_ = std::move(order);
        return index;
    } catch (...) {
        return std::nullopt;
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
    std::vector<MessageRecord> out;
    out.reserve(count());
    for (uint32_t rank = 0; rank < count(); ++rank) {
        auto r = record(rank);
        if (!r) {
            return std::nullopt;
        }
        out.push_back(std::move(*r));
    }
    return out;
}

std::optional<SearchCache::Answer> SearchCache::answer(const std::filesystem::path& cache,
                                                       const std::filesystem::path& json,
                                                       std::string_view query,
                                                       size_t limit) noexcept {
    for (bool rebuilt = false;; rebuilt = true) {
        if (auto opened = open(cache, json)) {
            if (auto ranks = opened->search(query)) {
                Answer answer{ranks->size(), {}};
                size_t shown = limit == 0 ? ranks->size() : std::min(limit, ranks->size());
                answer.shown.reserve(shown);
                for (size_t i = 0; i < shown; ++i) {
                    auto record = opened->record((*ranks)[i]);
                    if (!record) {
                        break;
                    }
                    answer.shown.push_back(std::move(*record));
                }
                if (answer.shown.size() == shown) {
                    return answer;
                }
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
