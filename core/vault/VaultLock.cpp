#include "vault/VaultLock.h"

#include "support/FileIO.h"
#include "vault/VaultBusyError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace qs {

namespace {

std::string programName() {
    try {
        auto name = FileIO::read("/proc/self/comm");
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) {
            name.pop_back();
        }
        return name;
    } catch (const std::system_error&) {
        return "quernstead";
    }
}

} // namespace

std::string VaultLock::describeHolder(std::string_view activity) {
    return programName() + ", process " + std::to_string(::getpid()) + ", " + std::string(activity);
}

VaultLock::VaultLock(const ArchiveLayout& layout, std::string_view activity) {
    layout.ensure();
    auto path = layout.metaDirectory() / fileName;
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ < 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    while (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) {
            continue;
        }
        int error = errno;
        ::close(fd_);
        fd_ = -1;
        if (error != EWOULDBLOCK) {
            throw std::system_error(error, std::generic_category(), path.string());
        }
        std::string holder;
        try {
            holder = FileIO::read(path);
        } catch (const std::system_error&) {
        }
        while (!holder.empty() && holder.back() == '\n') {
            holder.pop_back();
        }
        throw VaultBusyError(std::move(holder));
    }
    // Only the holder writes the file, so a waiting reader sees a whole name or none.
    auto text = describeHolder(activity) + "\n";
    if (::ftruncate(fd_, 0) == 0) {
        (void)!::pwrite(fd_, text.data(), text.size(), 0);
    }
}

VaultLock::~VaultLock() {
    if (fd_ >= 0) {
        (void)!::ftruncate(fd_, 0);
        ::close(fd_);
    }
}

} // namespace qs
