#include "support/FileSnapshot.h"

#include "support/FileIO.h"

#include <algorithm>

namespace qs::test {

namespace fs = std::filesystem;

FileSnapshot snapshotFiles(const fs::path& root, std::string_view skipped) {
    FileSnapshot files;
    if (!fs::exists(root))
        return files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const fs::path relative = fs::relative(entry.path(), root);
        if (entry.is_regular_file() && std::ranges::none_of(relative, [&](const fs::path& part) {
                return !skipped.empty() && part == skipped;
            }))
            files[relative.string()] = {FileIO::read(entry.path()), entry.last_write_time()};
    }
    return files;
}

} // namespace qs::test
