#include "backup/BackupRunner.h"

#include "support/AtomicFile.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace qs {

namespace {

namespace fs = std::filesystem;

bool hasEMLExtension(const fs::path& path) {
    auto extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".eml";
}

// Walks the regular files below `folder`, skipping whatever can't be read, and calls `visit`
// with each entry.
// A folder that a symbolic link takes out of the vault is not walked at all; links below it
// aren't followed.
template <typename Visit>
void walkFiles(const ArchiveLayout& layout, const fs::path& folder, Visit visit) {
    if (!layout.contains(folder)) {
        return;
    }
    std::error_code error;
    fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied,
                                        error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        std::error_code kindError;
        if (it->is_regular_file(kindError)) {
            visit(*it);
        }
    }
}

} // namespace

std::map<std::uint64_t, std::vector<std::string>>
BackupRunner::filesBySize(const ArchiveLayout& layout, std::string_view directory) {
    std::map<std::uint64_t, std::vector<std::string>> bySize;
    auto folder = layout.url(directory);
    walkFiles(layout, folder, [&](const fs::directory_entry& entry) {
        // A temporary file is never a filed message, even when it holds one whole.
        if (!hasEMLExtension(entry.path()) ||
            entry.path().filename().string().starts_with(AtomicFile::temporaryPrefix)) {
            return;
        }
        std::error_code error;
        auto size = entry.file_size(error);
        if (error) {
            return;
        }
        auto below = entry.path().lexically_relative(folder).generic_string();
        bySize[size].push_back(std::string(directory) + "/" + below);
    });
    for (auto& [size, paths] : bySize) {
        std::sort(paths.begin(), paths.end());
    }
    return bySize;
}

void BackupRunner::removeLeftovers(const ArchiveLayout& layout, std::string_view directory) {
    std::vector<fs::path> leftovers;
    walkFiles(layout, layout.url(directory), [&](const fs::directory_entry& entry) {
        if (entry.path().filename().string().starts_with(AtomicFile::temporaryPrefix)) {
            leftovers.push_back(entry.path());
        }
    });
    for (const auto& path : leftovers) {
        std::error_code ignored;
        fs::remove(path, ignored);
    }
}

} // namespace qs
