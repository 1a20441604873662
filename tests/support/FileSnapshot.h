#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace qs::test {

/// Every regular file below a folder, by relative path, with its bytes and modification time:
/// equal snapshots prove that nothing was written.
using FileSnapshot = std::map<std::string, std::pair<std::string, std::filesystem::file_time_type>>;

/// The files below `root` (none when it is missing), leaving out every path that has a part
/// named `skipped` (a file such as the vault's lock, or a whole folder such as its records).
FileSnapshot snapshotFiles(const std::filesystem::path& root, std::string_view skipped = {});

} // namespace qs::test
