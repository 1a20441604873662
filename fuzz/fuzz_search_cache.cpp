// Any damage to a search cache must end in a refused open or a call that returns nothing,
// never a crash, an out-of-range rank, a record that isn't whole or an index that doesn't
// hold together. Random bytes would fail
// the checksums at once, so the input is read as edits to a sound cache (pairs of a 4-byte
// offset and a byte to store there; a trailing pair's offset also cuts the file), after which
// the checksums are made right again: what is fuzzed is the reader's own checking.
#include "search/SearchCache.h"
#include "search/SearchIndex.h"
#include "support/FileIO.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace qs::SearchCacheLayout;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

struct Files {
    fs::path folder =
        fs::temp_directory_path() / ("fuzz-search-cache-" + std::to_string(::getpid()));
    fs::path json = folder / "index.json";
    fs::path cache = folder / "index.cache";
    std::string sound;

    Files() {
        fs::create_directories(folder);
        qs::SearchIndex index;
        for (int i = 0; i < 300; ++i) {
            qs::MessageRecord r;
            r.path = "a/INBOX/" + std::to_string(i) + ".eml";
            r.date = qs::dateFromUnix(1'600'000'000 + (i % 7) * 86'400);
            r.subject = "invoice " + std::to_string(i);
            r.snippet = std::string(100, char('a' + i % 26));
            if (i % 5 == 0) {
                r.senderFlag = "flag";
            }
            index.add(r, r.subject + " meeting word" + std::to_string(i % 17));
        }
        index.save(json);
        qs::SearchCache::rebuild(cache, json);
        sound = qs::FileIO::read(cache);
    }
};

/// Recomputes the page checksums and the header checksum, when the header still describes a
/// page table that fits the file.
void reseal(std::string& bytes, const FileStamp& stamp) {
    if (bytes.size() < sizeof(Header)) {
        return;
    }
    Header h;
    std::memcpy(&h, bytes.data(), sizeof h);
    h.json = stamp;
    const Section& sums = h.pageSums;
    if (sums.offset % pageSize == 0 && sums.offset >= pageSize && sums.offset <= bytes.size() &&
        sums.length == bytes.size() - sums.offset &&
        sums.length == (sums.offset / pageSize - 1) * 4) {
        for (uint64_t page = 1; page < sums.offset / pageSize; ++page) {
            uint32_t sum = checksum(std::string_view(bytes).substr(page * pageSize, pageSize));
            std::memcpy(bytes.data() + sums.offset + (page - 1) * 4, &sum, 4);
        }
        h.pageSumsChecksum = checksum(std::string_view(bytes).substr(sums.offset));
    }
    h.headerChecksum =
        checksum({reinterpret_cast<const char*>(&h), offsetof(Header, headerChecksum)});
    std::memcpy(bytes.data(), &h, sizeof h);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Files files;
    std::string bytes = files.sound;
    size_t i = 0;
    for (; i + 5 <= size; i += 5) {
        uint32_t offset = 0;
        std::memcpy(&offset, data + i, 4);
        if (!bytes.empty()) {
            bytes[offset % bytes.size()] = char(data[i + 4]);
        }
    }
    if (size - i == 4) {
        uint32_t cut = 0;
        std::memcpy(&cut, data + i, 4);
        bytes.resize(cut % (bytes.size() + 1));
    }
    auto stamp = FileStamp::of(files.json);
    check(stamp.has_value());
    reseal(bytes, *stamp);
    std::ofstream(files.cache, std::ios::binary | std::ios::trunc) << bytes;

    auto cache = qs::SearchCache::open(files.cache, files.json);
    if (!cache) {
        return 0;
    }
    for (const char* query : {"invoice", "inv 12", "meeting word1", "zz", "a"}) {
        auto ranks = cache->search(query);
        if (!ranks) {
            continue;
        }
        for (size_t k = 0; k < ranks->size(); ++k) {
            check((*ranks)[k] < cache->count());
            check(k == 0 || (*ranks)[k - 1] < (*ranks)[k]);
            if (auto record = cache->record((*ranks)[k])) {
                check(!record->senderFlag || record->senderFlag->size() <= bytes.size());
            }
        }
    }
    // The whole-index load: whatever it accepts must be an index that holds together (every
    // live record found by its path in its own slot, searches naming live records only).
    if (auto index = cache->index()) {
        for (const auto& r : index->liveRecords()) {
            const auto* found = index->record(r.path);
            check(found != nullptr && index->slot(found->id) == found);
        }
        for (const char* query : {"invoice", "inv 12", "meeting word1"}) {
            for (const auto* r : index->search(query)) {
                check(index->slot(r->id) == r);
            }
        }
    }
    return 0;
}
