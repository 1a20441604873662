#pragma once

#include <filesystem>

namespace qs::VaultRoot {

/// The user's Documents folder, then "Quernstead".
std::filesystem::path defaultRoot();

/// The vault for this run, the first that applies: QUERNSTEAD_ARCHIVE_DIR (not stored), the
/// "archiveRoot" setting, `defaultRoot()`. Nothing is created or tested on disk.
std::filesystem::path choose();

/// Stores `root` as the "archiveRoot" setting.
void remember(const std::filesystem::path& root);

} // namespace qs::VaultRoot
