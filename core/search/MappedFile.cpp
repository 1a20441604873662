#include "search/MappedFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace qs {

namespace {

[[noreturn]] void fail(const std::filesystem::path& path) {
    throw std::system_error(errno, std::generic_category(), path.string());
}

} // namespace

MappedFile::MappedFile(const std::filesystem::path& path, size_t padding) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fail(path);
    }
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        int saved = errno;
        ::close(fd);
        errno = saved;
        fail(path);
    }
    size_ = size_t(info.st_size);
    auto page = size_t(::sysconf(_SC_PAGESIZE));
    mapped_ = (size_ + padding + page - 1) / page * page;
    // Reserve zeroed memory for file and padding, then lay the file over its start: the tail
    // of the file's last page reads as zeros, and any page after it is the reservation's.
    base_ = ::mmap(nullptr, mapped_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base_ == MAP_FAILED) {
        int saved = errno;
        ::close(fd);
        base_ = nullptr;
        errno = saved;
        fail(path);
    }
    if (size_ > 0 && ::mmap(base_, size_, PROT_READ, MAP_PRIVATE | MAP_FIXED | MAP_POPULATE, fd,
                            0) == MAP_FAILED) {
        int saved = errno;
        ::munmap(base_, mapped_);
        ::close(fd);
        base_ = nullptr;
        errno = saved;
        fail(path);
    }
    ::close(fd);
}

MappedFile::~MappedFile() {
    if (base_) {
        ::munmap(base_, mapped_);
    }
}

} // namespace qs
