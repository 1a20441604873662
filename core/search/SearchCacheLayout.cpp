#include "search/SearchCacheLayout.h"

#include <algorithm>
#include <sys/stat.h>
#include <zlib.h>

namespace qs::SearchCacheLayout {

std::optional<FileStamp> FileStamp::of(const std::filesystem::path& path) {
    struct ::stat facts {};
    if (::stat(path.c_str(), &facts) != 0) {
        return std::nullopt;
    }
    return FileStamp{uint64_t(facts.st_size),
                     int64_t(facts.st_mtim.tv_sec) * 1'000'000'000 + facts.st_mtim.tv_nsec,
                     uint64_t(facts.st_ino)};
}

uint32_t checksum(std::string_view bytes) {
    // zlib takes a uInt length: feed large runs in pieces.
    uLong crc = ::crc32(0, nullptr, 0);
    const auto* data = reinterpret_cast<const Bytef*>(bytes.data());
    size_t left = bytes.size();
    while (left > 0) {
        auto piece = uInt(std::min<size_t>(left, 1u << 30));
        crc = ::crc32(crc, data, piece);
        data += piece;
        left -= piece;
    }
    return uint32_t(crc);
}

} // namespace qs::SearchCacheLayout
