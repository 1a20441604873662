#pragma once

#include "support/FileIO.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace qs::test {

/// Every regular file below a folder with its bytes and modification time, by relative path.
using FileSnapshot = std::map<std::string, std::pair<std::string, std::filesystem::file_time_type>>;

/// Leaves out every path that has a part named `skipped`.
inline FileSnapshot snapshotFiles(const std::filesystem::path& root,
                                  std::string_view skipped = {}) {
    FileSnapshot files;
    if (!std::filesystem::exists(root))
        return files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        const std::filesystem::path relative = entry.path().lexically_relative(root);
        if (entry.is_regular_file() && std::ranges::none_of(relative, [&](const auto& part) {
                return !skipped.empty() && part == skipped;
            }))
            files[relative.string()] = {FileIO::read(entry.path()), entry.last_write_time()};
    }
    return files;
}

} // namespace qs::test
