#include "support/FileIO.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace qs::FileIO {

namespace {

std::string readUpTo(const std::filesystem::path& path, size_t limit) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    struct stat info {};
    std::string out;
    if (::fstat(fd, &info) == 0 && info.st_size > 0) {
        out.reserve(std::min(limit, static_cast<size_t>(info.st_size)));
    }
    char buffer[1 << 16];
    while (out.size() < limit) {
        size_t want = std::min(sizeof buffer, limit - out.size());
        ssize_t n = ::read(fd, buffer, want);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            int saved = errno;
            ::close(fd);
            throw std::system_error(saved, std::generic_category(), path.string());
        }
        if (n == 0) {
            break;
        }
        out.append(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    return out;
}

} // namespace

std::string read(const std::filesystem::path& path) {
    return readUpTo(path, static_cast<size_t>(-1));
}

std::string readPrefix(const std::filesystem::path& path, size_t limit) {
    return readUpTo(path, limit);
}

} // namespace qs::FileIO
