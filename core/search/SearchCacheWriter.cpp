// Writing the search cache: the reader's layout, built from an index in memory.
#include "search/SearchCache.h"
#include "search/SearchIndex.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace qs {

using namespace SearchCacheLayout;

namespace {

template <typename T>
void append(std::string& out, const T& value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void appendString(std::string& out, std::string_view text) {
    append(out, uint32_t(text.size()));
    out.append(text);
}

/// Appends `section` to `file` at the next 8-byte boundary and returns where it went.
Section place(std::string& file, const std::string& section) {
    file.resize((file.size() + 7) / 8 * 8, '\0');
    Section placed{file.size(), section.size()};
    file.append(section);
    return placed;
}

} // namespace

void SearchCache::write(const SearchIndex& index, const std::filesystem::path& cache,
                        const FileStamp& json) {
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
        if (ranks.empty()) {
            continue;
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

    std::string records, recordText;
    records.reserve(order.size() * sizeof(RecordEntry));
    for (const auto& [date, id] : order) {
        const MessageRecord& r = *index.records_[id];
        uint64_t start = recordText.size();
        const std::string flag = r.senderFlag.value_or("");
        for (std::string_view s :
             {std::string_view(r.path), std::string_view(r.account), std::string_view(r.folder),
              std::string_view(r.subject), std::string_view(r.fromName),
              std::string_view(r.fromEmail), std::string_view(r.to), std::string_view(r.snippet),
              std::string_view(flag)}) {
            appendString(recordText, s);
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
        entry.textOffset = start;
        entry.textLength = uint32_t(recordText.size() - start);
        entry.trust = uint8_t(r.trust);
        entry.replyToMismatch = r.replyToMismatch ? 1 : 0;
        entry.hasSenderFlag = r.senderFlag ? 1 : 0;
        append(records, entry);
    }

    Header h{};
    std::memcpy(h.magic, magic, sizeof magic);
    h.version = version;
    h.pageSize = uint32_t(pageSize);
    h.json = json;
    h.recordCount = order.size();
    h.tokenCount = tokenCount;
    std::string file(pageSize, '\0');
    h.tokens = place(file, tokens);
    h.tokenText = place(file, tokenText);
    h.postings = place(file, postings);
    h.records = place(file, records);
    h.recordText = place(file, recordText);
    file.resize((file.size() + pageSize - 1) / pageSize * pageSize, '\0');

    std::string sums;
    for (uint64_t page = 1; page < file.size() / pageSize; ++page) {
        append(sums, checksum(std::string_view(file).substr(page * pageSize, pageSize)));
    }
    h.pageSums = {file.size(), sums.size()};
    h.pageSumsChecksum = checksum(sums);
    file.append(sums);
    h.fileSize = file.size();
    h.headerChecksum =
        checksum({reinterpret_cast<const char*>(&h), offsetof(Header, headerChecksum)});
    std::memcpy(file.data(), &h, sizeof h);

    if (cache.has_parent_path()) {
        std::filesystem::create_directories(cache.parent_path());
    }
    // Disposable and checked on every open: no flush to the disk is worth its wait.
    AtomicFile::writeUnflushed(cache, file);
}

} // namespace qs
