#pragma once

#include "vault/ArchiveLayout.h"
#include "vault/FolderState.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// How the files a folder's sync state records stand on the disk, found without the server.
struct FolderHealth {
    /// Below the vault's meta folder: where a file that a fresh copy replaces is moved, kept,
    /// under its vault-relative path.
    static constexpr std::string_view setAsideDirectoryName = "set-aside";

    /// Recorded files present, with the recorded size when one is known.
    int verified = 0;
    /// UID → vault-relative path of a recorded file that isn't there.
    std::map<std::uint32_t, std::string> missing;
    /// UID → vault-relative path of a recorded file whose size isn't the recorded one.
    std::map<std::uint32_t, std::string> differing;
    /// Vault-relative paths of the files set aside from this folder, sorted.
    std::vector<std::string> setAside;

    /// Looks at every file `state.files` records; a key that isn't a UID is ignored.
    static FolderHealth check(const ArchiveLayout& layout, const FolderState& state);

    /// Where a file at `relative` would be set aside (before any " (2)" for a name taken).
    static std::filesystem::path setAsideURL(const ArchiveLayout& layout,
                                             std::string_view relative);

    /// Moves the file at `relative` into the set-aside folder, never over another file there
    /// ("{name} (2).eml", …), and returns where it went. Throws std::system_error; the file is
    /// then where it was.
    static std::filesystem::path setAsideFile(const ArchiveLayout& layout,
                                              std::string_view relative);
};

} // namespace qs
