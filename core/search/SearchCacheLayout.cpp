#include "search/SearchCacheLayout.h"

#include "support/AtomicFile.h"
#include "support/FileIO.h"

#include <algorithm>
#include <cstring>
#include <sys/stat.h>
#include <system_error>
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

void writeSealed(const std::filesystem::path& path, std::string bytes) {
    uint32_t sum = checksum(bytes);
    bytes.append(reinterpret_cast<const char*>(&sum), sizeof sum);
    AtomicFile::writeUnflushed(path, bytes);
}

std::optional<std::string> readSealed(const std::filesystem::path& path, size_t minimum) {
    std::string bytes;
    try {
        bytes = FileIO::read(path);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
    if (bytes.size() < minimum + 4) {
        return std::nullopt;
    }
    uint32_t sum = 0;
    std::memcpy(&sum, bytes.data() + bytes.size() - 4, 4);
    bytes.resize(bytes.size() - 4);
    if (checksum(bytes) != sum) {
        return std::nullopt;
    }
    return bytes;
}

} // namespace qs::SearchCacheLayout
