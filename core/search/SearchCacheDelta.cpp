#include "search/SearchCacheDelta.h"

#include "search/SearchIndexCoder.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace qs {

namespace {

using SearchCacheLayout::FileStamp;

constexpr char magic[8] = {'Q', 'S', 'D', 'E', 'L', 'T', 'A', '1'};

// The file: this header, the removed ranks, the added slots as index.json text, then a
// CRC-32 of all before it.
struct Header {
    char magic[8];
    FileStamp json;
    FileStamp baseJSON;
    uint32_t baseHeaderChecksum;
    uint32_t unused;
    uint64_t baseSlots;
    uint64_t removedCount;
};

} // namespace

std::optional<SearchCacheDelta> SearchCacheDelta::since(const SearchIndex& index,
                                                        const std::filesystem::path& cache) {
    if (!index.cacheBase_) {
        return std::nullopt;
    }
    const SearchCacheLayout::Base& base = *index.cacheBase_;
    const size_t baseSlots = base.rankOfId.size();
    // Past this many changes a whole cache is written: every reader merges the delta.
    size_t limit = std::max<size_t>(2000, index.count() / 50);
    if (index.records_.size() < baseSlots || index.records_.size() - baseSlots > limit) {
        return std::nullopt;
    }
    // Still the cache the index came from: its header names the same index.json and checksum.
    SearchCacheLayout::Header h{};
    int fd = ::open(cache.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    bool read = ::pread(fd, &h, sizeof h, 0) == ssize_t(sizeof h);
    ::close(fd);
    if (!read ||
        SearchCacheLayout::checksum({reinterpret_cast<const char*>(&h),
                                     offsetof(SearchCacheLayout::Header, headerChecksum)}) !=
            h.headerChecksum ||
        h.headerChecksum != base.headerChecksum || !(h.json == base.json) ||
        h.slotCount != baseSlots) {
        return std::nullopt;
    }

    SearchCacheDelta delta;
    delta.baseJSON = base.json;
    delta.baseHeaderChecksum = base.headerChecksum;
    delta.baseSlots = baseSlots;
    delta.removedRanks = base.removedRanks;
    for (uint32_t id : index.removedSinceSave_) {
        if (id < baseSlots && base.rankOfId[id] != SearchCacheLayout::Base::noRank) {
            delta.removedRanks.push_back(base.rankOfId[id]);
        }
    }
    std::sort(delta.removedRanks.begin(), delta.removedRanks.end());
    delta.removedRanks.erase(std::unique(delta.removedRanks.begin(), delta.removedRanks.end()),
                             delta.removedRanks.end());
    if (delta.removedRanks.size() > limit) {
        return std::nullopt;
    }

    SearchIndex& added = delta.added;
    auto first = uint32_t(baseSlots);
    added.records_.assign(index.records_.begin() + first, index.records_.end());
    for (uint32_t n = 0; n < index.tokens_.size(); ++n) {
        const auto& ids = index.postings_[n];
        if (ids.empty() || ids.back() < first) {
            continue;
        }
        added.tokens_.intern(index.tokens_.token(n));
        auto& list = added.postings_.emplace_back();
        for (auto id = std::lower_bound(ids.begin(), ids.end(), first); id != ids.end(); ++id) {
            list.push_back(*id - first);
        }
    }
    return delta;
}

void SearchCacheDelta::write(const std::filesystem::path& path) const {
    Header h{};
    std::memcpy(h.magic, magic, sizeof magic);
    h.json = json;
    h.baseJSON = baseJSON;
    h.baseHeaderChecksum = baseHeaderChecksum;
    h.baseSlots = baseSlots;
    h.removedCount = removedRanks.size();
    std::string bytes(reinterpret_cast<const char*>(&h), sizeof h);
    bytes.append(reinterpret_cast<const char*>(removedRanks.data()), removedRanks.size() * 4);
    SearchIndexCoder::encode(added, [&](std::string_view piece) { bytes.append(piece); });
    SearchCacheLayout::writeSealed(path, std::move(bytes));
}

std::optional<SearchCacheDelta> SearchCacheDelta::read(const std::filesystem::path& path) noexcept {
    try {
        auto sealed = SearchCacheLayout::readSealed(path, sizeof(Header));
        if (!sealed) {
            return std::nullopt;
        }
        std::string_view body = *sealed;
        Header h{};
        std::memcpy(&h, body.data(), sizeof h);
        if (std::memcmp(h.magic, magic, sizeof magic) != 0 ||
            h.removedCount > (body.size() - sizeof h) / 4) {
            return std::nullopt;
        }
        SearchCacheDelta delta;
        delta.json = h.json;
        delta.baseJSON = h.baseJSON;
        delta.baseHeaderChecksum = h.baseHeaderChecksum;
        delta.baseSlots = h.baseSlots;
        delta.removedRanks.resize(size_t(h.removedCount));
        std::memcpy(delta.removedRanks.data(), body.data() + sizeof h,
                    delta.removedRanks.size() * 4);
        body.remove_prefix(sizeof h + delta.removedRanks.size() * 4);
        delta.added = SearchIndex::decode(body);
        for (size_t i = 0; i < delta.removedRanks.size(); ++i) {
            if (i > 0 && delta.removedRanks[i - 1] >= delta.removedRanks[i]) {
                return std::nullopt;
            }
        }
        return delta;
    } catch (...) {
        return std::nullopt;
    }
}

} // namespace qs
