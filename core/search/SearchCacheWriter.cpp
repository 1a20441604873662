// Writing the search cache: the reader's layout, built from an index in memory.
#include "search/SearchCache.h"
#include "search/SearchCacheDelta.h"
#include "search/SearchIndex.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <future>
#include <string>
#include <system_error>
#include <thread>

namespace qs {

using namespace SearchCacheLayout;

namespace {

template <typename T>
void append(std::string& out, const T& value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Lays the file out as it goes, straight into `file`: page 0 is left for the header, each
/// section starts at the next 8-byte boundary, and every full page is checksummed as it
/// leaves, so the largest thing held is a megabyte of pending pages.
class PageWriter {
public:
    explicit PageWriter(AtomicFile::Stream& file) : file_(file) { pending_.assign(pageSize, '\0'); }

    /// Where the next byte goes.
    uint64_t offset() const { return written_ + pending_.size(); }

    void append(std::string_view bytes) {
        pending_.append(bytes);
        if (pending_.size() >= flushBytes) {
            flush();
        }
    }

    template <typename T>
    void appendValue(const T& value) {
        append({reinterpret_cast<const char*>(&value), sizeof value});
    }

    void align(uint64_t boundary) {
        pending_.resize(pending_.size() + (boundary - offset() % boundary) % boundary, '\0');
    }

    /// Pads the last page, writes it and the page checksums, and returns where they start.
    Section finish() {
        align(pageSize);
        flush();
        Section placed{written_, sums_.size()};
        file_.append(sums_);
        return placed;
    }

    uint32_t sumsChecksum() const { return checksum(sums_); }

private:
    static constexpr size_t flushBytes = size_t(1) << 20;

    void flush() {
        size_t whole = pending_.size() / pageSize * pageSize;
        for (size_t at = 0; at < whole; at += pageSize) {
            // Page 0 is the header, which has a checksum of its own.
            if (written_ + at > 0) {
                uint32_t sum = checksum(std::string_view(pending_).substr(at, pageSize));
                sums_.append(reinterpret_cast<const char*>(&sum), sizeof sum);
            }
        }
        file_.append(std::string_view(pending_).substr(0, whole));
        written_ += whole;
        pending_.erase(0, whole);
    }

    AtomicFile::Stream& file_;
    std::string pending_;
    std::string sums_;
    uint64_t written_ = 0;
};

/// Appends `bytes` as a section of its own and returns where it went.
Section place(PageWriter& out, std::string_view bytes) {
    out.align(8);
    Section placed{out.offset(), bytes.size()};
    out.append(bytes);
    return placed;
}

} // namespace

void SearchCache::write(const SearchIndex& index, const std::filesystem::path& cache,
                        const FileStamp& json) {
    writeStamped(index, cache, [&] { return std::optional(json); });
}

void SearchCache::save(SearchIndex& index, const std::filesystem::path& json) {
    if (json.has_parent_path()) {
        std::filesystem::create_directories(json.parent_path());
    }
    // Built here, before two threads read the index: it is a lazily filled cache.
    index.sortedTokens();
    auto cache = beside(json);
    if (auto delta = SearchCacheDelta::since(index, cache)) {
        // A few changes: index.json is patched and the cache stays, with a delta beside it.
        index.savedAs(index.writeFile(json), json);
        try {
            auto stamp = FileStamp::of(json);
            if (!stamp) {
                throw std::system_error(ENOENT, std::generic_category(), json.string());
            }
            delta->json = *stamp;
            delta->write(SearchCacheDelta::beside(cache));
            index.cacheBase_->removedRanks = std::move(delta->removedRanks);
        } catch (...) {
            // The next reader finds the cache stale and rebuilds it.
            index.cacheBase_.reset();
        }
        return;
    }

    std::promise<std::optional<FileStamp>> saved;
    auto stamp = saved.get_future();
    std::optional<Base> written;
    auto writeCache = [&]() noexcept {
        try {
            written = writeStamped(index, cache, [&] { return stamp.get(); });
        } catch (...) {
            // Rebuilt from index.json by the next reader that finds it missing or stale.
        }
    };
    std::thread cacheWriter;
    try {
        cacheWriter = std::thread(writeCache);
    } catch (const std::system_error&) {
        // Written after the save instead.
    }
    std::optional<IndexFileMap> map;
    try {
        map = index.writeFile(json);
        saved.set_value(FileStamp::of(json));
    } catch (...) {
        saved.set_value(std::nullopt);
        if (cacheWriter.joinable()) {
            cacheWriter.join();
        }
        throw;
    }
    if (cacheWriter.joinable()) {
        cacheWriter.join();
    } else {
        writeCache();
    }
    index.savedAs(*map, json);
    index.cacheBase_ = std::move(written);
}

std::optional<Base>
SearchCache::writeStamped(const SearchIndex& index, const std::filesystem::path& cache,
                          const std::function<std::optional<FileStamp>()>& stampAtEnd) {
    // Ranks: live records newest first, ties by the later slot first, as the index orders
    // its own results; tombstones get no rank and drop out of the postings.
    std::vector<std::pair<int64_t, uint32_t>> order;
    order.reserve(index.count());
    for (uint32_t id = 0; id < index.records_.size(); ++id) {
        if (const auto& r = index.records_[id]) {
            order.emplace_back(r->date.time_since_epoch().count(), id);
        }
    }
    std::sort(order.begin(), order.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first > b.first : a.second > b.second;
    });
    constexpr uint32_t none = UINT32_MAX;
    std::vector<uint32_t> rankOf(index.records_.size(), none);
    for (uint32_t rank = 0; rank < order.size(); ++rank) {
        rankOf[order[rank].second] = rank;
    }

    // The token sections are a fraction of the file and are built whole; the records, most
    // of it, are streamed.
    std::string tokens, tokenText, postings;
    uint64_t tokenCount = 0;
    uint64_t postingCount = 0;
    std::vector<uint32_t> ranks;
    for (uint32_t number : index.sortedTokens()) {
        ranks.clear();
        for (uint32_t id : index.postings_[number]) {
            if (id < rankOf.size() && rankOf[id] != none) {
                ranks.push_back(rankOf[id]);
            }
        }
        std::sort(ranks.begin(), ranks.end());
        auto text = index.tokens_.token(number);
        append(tokens, TokenEntry{uint32_t(tokenText.size()), uint32_t(text.size()), postingCount});
        tokenText.append(text);
        postings.append(reinterpret_cast<const char*>(ranks.data()), ranks.size() * 4);
        postingCount += ranks.size();
        ++tokenCount;
    }
    append(tokens, TokenEntry{uint32_t(tokenText.size()), 0, postingCount});

    auto strings = [](const MessageRecord& r) {
        std::array<std::string_view, recordStringCount> out;
        auto always = recordStrings(r);
        static_assert(always.size() + 1 == recordStringCount);
        std::ranges::transform(always, out.begin(), [](auto* s) { return std::string_view(*s); });
        out.back() = r.senderFlag ? std::string_view(*r.senderFlag) : "";
        return out;
    };

    if (cache.has_parent_path()) {
        std::filesystem::create_directories(cache.parent_path());
    }
    // Never flushed (below): its writing is left to the system.
    AtomicFile::Stream file(cache, false);
    PageWriter out(file);
    Header h{};
    std::memcpy(h.magic, magic, sizeof magic);
    h.version = version;
    h.pageSize = uint32_t(pageSize);
    h.recordCount = order.size();
    h.slotCount = index.records_.size();
    h.tokenCount = tokenCount;
    h.tokens = place(out, tokens);
    h.tokenText = place(out, tokenText);
    h.postings = place(out, postings);

    // The entries first, with their text's offsets worked out ahead, then the text itself.
    out.align(8);
    h.records = {out.offset(), order.size() * sizeof(RecordEntry)};
    uint64_t textOffset = 0;
    for (const auto& [date, id] : order) {
        const MessageRecord& r = *index.records_[id];
        uint64_t length = 0;
        for (auto s : strings(r)) {
            length += 4 + s.size();
        }
        RecordEntry entry{};
        entry.id = r.id;
        entry.dateNanoseconds =
            std::chrono::duration_cast<std::chrono::nanoseconds>(r.date.time_since_epoch()).count();
        entry.size = r.size;
        entry.attachments = r.attachments;
        entry.trackers = r.trackers;
        entry.remoteImages = r.remoteImages;
        entry.linkWarnings = r.linkWarnings;
        entry.mtime = r.mtime;
        entry.textOffset = textOffset;
        entry.textLength = uint32_t(length);
        entry.trust = uint8_t(r.trust);
        entry.replyToMismatch = r.replyToMismatch ? 1 : 0;
        entry.hasSenderFlag = r.senderFlag ? 1 : 0;
        out.appendValue(entry);
        textOffset += length;
    }
    out.align(8);
    h.recordText = {out.offset(), textOffset};
    for (const auto& [date, id] : order) {
        for (auto s : strings(*index.records_[id])) {
            out.appendValue(uint32_t(s.size()));
            out.append(s);
        }
    }

    // The stamp last: it may be the identity of an index.json still being written meanwhile.
    auto json = stampAtEnd();
    if (!json) {
        return std::nullopt;
    }
    h.json = *json;
    h.pageSums = out.finish();
    h.pageSumsChecksum = out.sumsChecksum();
    h.fileSize = h.pageSums.offset + h.pageSums.length;
    h.headerChecksum =
        checksum({reinterpret_cast<const char*>(&h), offsetof(Header, headerChecksum)});
    file.overwrite(0, {reinterpret_cast<const char*>(&h), sizeof h});
    // Disposable and checked on every open: no flush to the disk is worth its wait.
    file.commit(false);
    // A delta made for the cache this one replaces applies to nothing now.
    std::error_code ignored;
    std::filesystem::remove(SearchCacheDelta::beside(cache), ignored);
    return Base{h.json, h.headerChecksum, std::move(rankOf), {}};
}

} // namespace qs
