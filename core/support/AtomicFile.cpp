#include "support/AtomicFile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace qs::AtomicFile {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void writeAll(int fd, std::string_view bytes, const std::string& name) {
    while (!bytes.empty()) {
        ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(name);
        }
        bytes.remove_prefix(static_cast<size_t>(n));
    }
}

std::filesystem::path temporaryPath(const std::filesystem::path& path) {
    static std::atomic<unsigned> counter{0};
    auto name = std::string(temporaryPrefix) + std::to_string(::getpid()) + "-" +
                std::to_string(counter.fetch_add(1)) + "-" + path.filename().string();
    return path.parent_path() / name;
}

} // namespace

Stream::Stream(std::filesystem::path path, bool writeBehind)
    : path_(std::move(path)), temporary_(temporaryPath(path_)), writeBehind_(writeBehind) {
    fd_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd_ < 0) {
        fail(path_.string());
    }
}

Stream::~Stream() {
    if (fd_ >= 0) {
        ::close(fd_);
        ::unlink(temporary_.c_str());
    }
}

void Stream::append(std::string_view bytes) {
    writeAll(fd_, bytes, path_.string());
    wrote(bytes.size());
}

void Stream::wrote(uint64_t bytes) {
    constexpr uint64_t piece = uint64_t(32) << 20;
    written_ += bytes;
    if (writeBehind_ && written_ - handedToDisk_ >= piece) {
        // Only starts the writing: an error shows in the flush at commit.
        ::sync_file_range(fd_, off_t(handedToDisk_), off_t(written_ - handedToDisk_),
                          SYNC_FILE_RANGE_WRITE);
        handedToDisk_ = written_;
    }
}

void Stream::overwrite(uint64_t offset, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::pwrite(fd_, bytes.data(), bytes.size(), off_t(offset));
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(path_.string());
        }
        bytes.remove_prefix(size_t(n));
        offset += uint64_t(n);
    }
}

void Stream::appendFrom(int fd, uint64_t offset, uint64_t length) {
    auto from = off_t(offset);
    while (length > 0) {
        ssize_t n = ::copy_file_range(fd, &from, fd_, nullptr, length, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        length -= uint64_t(n);
        wrote(uint64_t(n));
    }
    // Across file systems, or where the call is missing, the bytes go through memory.
    std::string buffer;
    while (length > 0) {
        buffer.resize(size_t(std::min<uint64_t>(length, uint64_t(1) << 20)));
        ssize_t n = ::pread(fd, buffer.data(), buffer.size(), from);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            if (n == 0) {
                errno = EIO;
            }
            fail(path_.string());
        }
        append({buffer.data(), size_t(n)});
        from += n;
        length -= uint64_t(n);
    }
}

void Stream::commit(bool flush) {
    if (flush && ::fsync(fd_) != 0) {
        fail(path_.string());
    }
    int fd = std::exchange(fd_, -1);
    if (::close(fd) != 0) {
        int saved = errno;
        ::unlink(temporary_.c_str());
        errno = saved;
        fail(path_.string());
    }
    if (::rename(temporary_.c_str(), path_.c_str()) != 0) {
        int saved = errno;
        ::unlink(temporary_.c_str());
        errno = saved;
        fail(path_.string());
    }
}

namespace {

void writeFile(const std::filesystem::path& path, std::string_view bytes, bool flush) {
    Stream stream(path);
    stream.append(bytes);
    stream.commit(flush);
}

} // namespace

void write(const std::filesystem::path& path, std::string_view bytes) {
    writeFile(path, bytes, true);
}

void writeUnflushed(const std::filesystem::path& path, std::string_view bytes) {
    writeFile(path, bytes, false);
}

void removeDeadLeftovers(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        auto name = it->path().filename().string();
        if (!name.starts_with(temporaryPrefix)) {
            continue;
        }
        // ".qs-tmp-{pid}-{n}-{name}": a file of a live process is a save under way.
        auto rest = std::string_view(name).substr(temporaryPrefix.size());
        auto digits = rest.substr(0, rest.find('-'));
        pid_t pid = 0;
        for (char c : digits) {
            pid = c >= '0' && c <= '9' && pid < 100'000'000 ? pid * 10 + (c - '0') : -1;
            if (pid < 0) {
                break;
            }
        }
        if (pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM)) {
            continue;
        }
        std::error_code ignored;
        std::filesystem::remove(it->path(), ignored);
    }
}

void syncFileSystem(const std::filesystem::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fail(path.string());
    }
    int result = ::syncfs(fd);
    int saved = errno;
    ::close(fd);
    if (result != 0) {
        errno = saved;
        fail(path.string());
    }
}

} // namespace qs::AtomicFile
