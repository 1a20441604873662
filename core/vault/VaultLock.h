#pragma once

#include "vault/ArchiveLayout.h"

#include <string>
#include <string_view>

namespace qs {

/// One writer per vault, across processes: held in the hidden folder for the length of a
/// backup, an import, a reindex or a release. The lock is the kernel's on the file
/// ".quernstead/lock", so a process that dies, however it dies, lets go of it, and the next
/// writer takes it over; the file's text only names the holder for whoever has to wait.
class VaultLock {
public:
    /// The file that carries the lock.
    static constexpr std::string_view fileName = "lock";

    /// Takes the lock for `activity` ("backup", "import", "reindex", "release"). Throws
    /// VaultBusyError naming the holder when another holds it, std::system_error when the file
    /// can't be made.
    VaultLock(const ArchiveLayout& layout, std::string_view activity);
    /// Lets go of the lock.
    ~VaultLock();

    VaultLock(const VaultLock&) = delete;
    VaultLock& operator=(const VaultLock&) = delete;

    /// What a holder writes of itself: program, process and activity.
    static std::string describeHolder(std::string_view activity);

private:
    int fd_ = -1;
};

} // namespace qs
