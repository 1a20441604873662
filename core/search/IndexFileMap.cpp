#include "search/IndexFileMap.h"

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace qs {

namespace {

constexpr char magic[8] = {'Q', 'S', 'I', 'N', 'D', 'M', 'A', 'P'};
constexpr uint32_t version = 1;

// The file: this header, the record starts, the posting ends, then a CRC-32 of all before it.
struct Header {
    char magic[8];
    uint32_t version;
    uint32_t unused;
    SearchCacheLayout::FileStamp json;
    uint64_t slots;
    uint64_t tokens;
    uint64_t recordsEnd;
    uint64_t postingsOpen;
};

bool ascending(const std::vector<uint64_t>& offsets, uint64_t after, uint64_t before) {
    for (uint64_t offset : offsets) {
        if (offset <= after || offset >= before) {
            return false;
        }
        after = offset;
    }
    return true;
}

} // namespace

void IndexFileMap::write(const std::filesystem::path& path) const {
    Header h{};
    std::memcpy(h.magic, magic, sizeof magic);
    h.version = version;
    h.json = json;
    h.slots = recordStarts.size();
    h.tokens = postingEnds.size();
    h.recordsEnd = recordsEnd;
    h.postingsOpen = postingsOpen;
    std::string bytes(reinterpret_cast<const char*>(&h), sizeof h);
    for (const auto* offsets : {&recordStarts, &postingEnds}) {
        bytes.append(reinterpret_cast<const char*>(offsets->data()), offsets->size() * 8);
    }
    SearchCacheLayout::writeSealed(path, std::move(bytes));
}

std::optional<IndexFileMap> IndexFileMap::read(const std::filesystem::path& path) noexcept {
    try {
        auto body = SearchCacheLayout::readSealed(path, sizeof(Header));
        if (!body) {
            return std::nullopt;
        }
        Header h{};
        std::memcpy(&h, body->data(), sizeof h);
        if (std::memcmp(h.magic, magic, sizeof magic) != 0 || h.version != version ||
            h.slots > body->size() / 8 || h.tokens > body->size() / 8 ||
            body->size() != sizeof h + (h.slots + h.tokens) * 8) {
            return std::nullopt;
        }
        IndexFileMap map;
        map.json = h.json;
        map.recordsEnd = h.recordsEnd;
        map.postingsOpen = h.postingsOpen;
        map.recordStarts.resize(size_t(h.slots));
        map.postingEnds.resize(size_t(h.tokens));
        std::memcpy(map.recordStarts.data(), body->data() + sizeof h, size_t(h.slots) * 8);
        std::memcpy(map.postingEnds.data(), body->data() + sizeof h + h.slots * 8,
                    size_t(h.tokens) * 8);
        // Records lie before their closing "]", the postings after the records, all within
        // the file.
        if (!ascending(map.recordStarts, 0, map.recordsEnd) || map.postingsOpen <= map.recordsEnd ||
            !ascending(map.postingEnds, map.postingsOpen, h.json.size)) {
            return std::nullopt;
        }
        return map;
    } catch (...) {
        return std::nullopt;
    }
}

} // namespace qs
