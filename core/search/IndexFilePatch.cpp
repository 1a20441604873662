#include "search/IndexFilePatch.h"

#include "search/SearchIndex.h"
#include "search/SearchIndexCoder.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qs {

namespace {

struct Edit {
    uint64_t at;
    uint64_t cut;
    std::string text;
};

struct Descriptor {
    int fd;
    ~Descriptor() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

} // namespace

std::optional<IndexFileMap> IndexFilePatch::write(const SearchIndex& index, const IndexFileMap& map,
                                                  const std::filesystem::path& json) {
    const uint32_t slots = index.savedSlots_;
    const uint32_t tokens = index.savedTokens_;
    // An empty records array or postings object has no separator to build on.
    if (!index.savedValid_ || slots == 0 || tokens == 0 || map.recordStarts.size() != slots ||
        map.postingEnds.size() != tokens || index.records_.size() < slots ||
        index.tokens_.size() < tokens) {
        return std::nullopt;
    }
    Descriptor in{::open(json.c_str(), O_RDONLY | O_CLOEXEC)};
    if (in.fd < 0) {
        return std::nullopt;
    }
    struct ::stat facts {};
    if (::fstat(in.fd, &facts) != 0 ||
        !(SearchCacheLayout::FileStamp{uint64_t(facts.st_size),
                                       int64_t(facts.st_mtim.tv_sec) * 1'000'000'000 +
                                           facts.st_mtim.tv_nsec,
                                       uint64_t(facts.st_ino)} == map.json)) {
        return std::nullopt;
    }

    std::vector<Edit> edits;
    IndexFileMap next;
    next.recordStarts.reserve(index.records_.size());
    next.postingEnds.reserve(index.tokens_.size());
    // The growth of the text before the point reached, as the edits are laid out in order.
    int64_t shift = 0;

    auto removed = index.removedSinceSave_;
    std::sort(removed.begin(), removed.end());
    removed.erase(std::unique(removed.begin(), removed.end()), removed.end());
    auto gone = removed.begin();
    for (uint32_t id = 0; id < slots; ++id) {
        uint64_t start = map.recordStarts[id];
        next.recordStarts.push_back(uint64_t(int64_t(start) + shift));
        if (gone != removed.end() && *gone == id) {
            ++gone;
            // A record's value ends at the comma before the next one, or at the closing "]".
            uint64_t end = id + 1 < slots ? map.recordStarts[id + 1] - 1 : map.recordsEnd;
            edits.push_back({start, end - start, "null"});
            shift += 4 - int64_t(end - start);
        }
    }
    std::string appended;
    uint64_t recordsEnd = uint64_t(int64_t(map.recordsEnd) + shift);
    for (size_t id = slots; id < index.records_.size(); ++id) {
        appended += ',';
        next.recordStarts.push_back(recordsEnd + appended.size());
        if (const auto& r = index.records_[id]) {
            SearchIndexCoder::appendRecord(appended, *r);
        } else {
            appended += "null";
        }
    }
    shift += int64_t(appended.size());
    next.recordsEnd = recordsEnd + appended.size();
    next.postingsOpen = uint64_t(int64_t(map.postingsOpen) + shift);
    if (!appended.empty()) {
        edits.push_back({map.recordsEnd, 0, std::move(appended)});
    }

    // New tokens go in after the old token before them, or at the opening brace when they
    // sort first; `inserted` gathers them until the next old token.
    std::string inserted;
    uint64_t insertAt = map.postingsOpen;
    auto placeInserted = [&] {
        if (!inserted.empty()) {
            shift += int64_t(inserted.size());
            edits.push_back({insertAt, 0, std::move(inserted)});
            inserted.clear();
        }
    };
    size_t old = 0;
    for (uint32_t number : index.sortedTokens()) {
        const auto& ids = index.postings_[number];
        if (number >= tokens) {
            // A token the file doesn't have yet: all its ids are new.
            if (ids.empty() || ids.front() < slots) {
                return std::nullopt;
            }
            bool first = old == 0;
            if (!first) {
                inserted += ',';
            }
            SearchIndexCoder::appendPosting(inserted, index.tokens_.token(number), ids);
            next.postingEnds.push_back(uint64_t(int64_t(insertAt) + shift) + inserted.size() - 1);
            if (first) {
                inserted += ',';
            }
            continue;
        }
        placeInserted();
        uint64_t end = map.postingEnds[old++];
        auto fresh = std::lower_bound(ids.begin(), ids.end(), slots);
        if (fresh != ids.end()) {
            std::string text;
            SearchIndexCoder::appendIDs(text, std::span(fresh, ids.end()));
            if (fresh == ids.begin()) {
                // The first id of a list that the file holds empty takes no comma.
                char before = 0;
                if (::pread(in.fd, &before, 1, off_t(end - 1)) != 1) {
                    return std::nullopt;
                }
                if (before == '[') {
                    text.erase(0, 1);
                }
            }
            shift += int64_t(text.size());
            edits.push_back({end, 0, std::move(text)});
        }
        next.postingEnds.push_back(uint64_t(int64_t(end) + shift));
        insertAt = end + 1;
    }
    placeInserted();

    AtomicFile::Stream out(json);
    uint64_t from = 0;
    for (const auto& edit : edits) {
        out.appendFrom(in.fd, from, edit.at - from);
        out.append(edit.text);
        from = edit.at + edit.cut;
    }
    out.appendFrom(in.fd, from, map.json.size - from);
    out.commit();
    // The last handle on the replaced file gives its blocks back when it closes, a tenth of a
    // second for a large index that no one needs to wait for: it closes aside.
    int replaced = std::exchange(in.fd, -1);
    try {
        std::thread([replaced] { ::close(replaced); }).detach();
    } catch (const std::system_error&) {
        ::close(replaced);
    }
    return next;
}

} // namespace qs
