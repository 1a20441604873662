#include "search/SearchCache.h"

#include "search/SearchIndex.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
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
    // One bit per data page, set once the page has matched its checksum.
    mutable std::vector<uint64_t> verified;

    ~Mapping() {
        if (base != nullptr) {
            ::munmap(const_cast<char*>(base), size);
        }
    }

    void verify(uint64_t page) const {
        auto& word = verified[page >> 6];
        uint64_t bit = uint64_t(1) << (page & 63);
        if ((word & bit) != 0) {
            return;
        }
        uint32_t expected = 0;
        std::memcpy(&expected, sums + (page - 1) * 4, 4);
        require(checksum({base + page * pageSize, pageSize}) == expected);
        word |= bit;
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
        mapping->verified.assign(size_t(dataEnd / pageSize / 64 + 1), 0);
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
        size_t wordCount = size_t((h.recordCount + 63) / 64);
        std::vector<uint64_t> candidates;
        std::vector<uint64_t> matches(wordCount);
        uint64_t postingCount = h.postings.length / 4;
        for (const auto& word : words) {
            std::fill(matches.begin(), matches.end(), 0);
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
                uint64_t start = m.item<TokenEntry>(h.tokens, t).postingStart;
                uint64_t end = m.item<TokenEntry>(h.tokens, t + 1).postingStart;
                require(start <= end && end <= postingCount);
                auto ranks = m.bytes(h.postings, start * 4, (end - start) * 4);
                for (size_t i = 0; i < ranks.size(); i += 4) {
                    uint32_t rank = 0;
                    std::memcpy(&rank, ranks.data() + i, 4);
                    require(rank < h.recordCount);
                    matches[rank >> 6] |= uint64_t(1) << (rank & 63);
                }
            }
            bool any = false;
            if (candidates.empty()) {
                candidates.swap(matches);
                matches.assign(wordCount, 0);
                any = std::ranges::any_of(candidates, [](uint64_t bits) { return bits != 0; });
            } else {
                for (size_t i = 0; i < wordCount; ++i) {
                    candidates[i] &= matches[i];
                    any = any || candidates[i] != 0;
                }
            }
            if (!any) {
                return out;
            }
        }
        for (size_t i = 0; i < wordCount; ++i) {
            for (uint64_t bits = candidates[i]; bits != 0; bits &= bits - 1) {
                out.push_back(uint32_t(i * 64 + size_t(std::countr_zero(bits))));
            }
        }
        return out;
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<MessageRecord> SearchCache::record(uint32_t rank) const noexcept {
    try {
        const Mapping& m = *mapping_;
        require(rank < m.header.recordCount);
        auto entry = m.item<RecordEntry>(m.header.records, rank);
        require(entry.trust <= uint8_t(SenderTrust::unknown) && entry.replyToMismatch <= 1 &&
                entry.hasSenderFlag <= 1);
        auto text = m.bytes(m.header.recordText, entry.textOffset, entry.textLength);
        std::string strings[recordStringCount];
        for (auto& s : strings) {
            require(text.size() >= 4);
            uint32_t length = 0;
            std::memcpy(&length, text.data(), 4);
            text.remove_prefix(4);
            require(length <= text.size());
            s.assign(text.substr(0, length));
            text.remove_prefix(length);
        }
        require(text.empty());
        MessageRecord r;
        r.id = entry.id;
        r.path = std::move(strings[0]);
        r.account = std::move(strings[1]);
        r.folder = std::move(strings[2]);
        r.subject = std::move(strings[3]);
        r.fromName = std::move(strings[4]);
        r.fromEmail = std::move(strings[5]);
        r.to = std::move(strings[6]);
        r.snippet = std::move(strings[7]);
        if (entry.hasSenderFlag != 0) {
            r.senderFlag = std::move(strings[8]);
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
    } catch (...) {
        return std::nullopt;
    }
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
