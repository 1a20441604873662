#include "backup/FolderHealth.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace qs {

namespace fs = std::filesystem;

FolderHealth FolderHealth::check(const ArchiveLayout& layout, const FolderState& state) {
    FolderHealth health;
    for (const auto& [key, path] : state.files) {
        std::uint32_t uid = 0;
        auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), uid);
        if (error != std::errc() || end != key.data() + key.size()) {
            continue;
        }
        std::error_code sizeError;
        auto size = fs::file_size(layout.url(path), sizeError);
        if (sizeError) {
            health.missing.emplace(uid, path);
            continue;
        }
        std::optional<std::int64_t> recorded;
        if (state.sizes) {
            if (auto known = state.sizes->find(key); known != state.sizes->end()) {
                recorded = known->second;
            }
        }
        if (recorded && static_cast<std::int64_t>(size) != *recorded) {
            health.differing.emplace(uid, path);
        } else {
            ++health.verified;
        }
    }
    auto folder = setAsideURL(layout, state.directory);
    std::error_code error;
    fs::recursive_directory_iterator it(folder, error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        std::error_code kindError;
        if (it->is_regular_file(kindError)) {
            health.setAside.push_back(it->path().lexically_relative(layout.root).generic_string());
        }
    }
    std::sort(health.setAside.begin(), health.setAside.end());
    return health;
}

fs::path FolderHealth::setAsideURL(const ArchiveLayout& layout, std::string_view relative) {
    // Through `url`, so that a damaged record can't name a place outside the set-aside folder.
    auto inside = layout.url(relative).lexically_relative(layout.root);
    return layout.metaDirectory() / setAsideDirectoryName / inside;
}

fs::path FolderHealth::setAsideFile(const ArchiveLayout& layout, std::string_view relative) {
    auto source = layout.url(relative);
    auto target = setAsideURL(layout, relative);
    fs::create_directories(target.parent_path());
    // The entry itself is moved, a symbolic link as a link: only the folders must be the vault's.
    if (!layout.contains(source.parent_path()) || !layout.contains(target.parent_path())) {
        throw std::system_error(std::make_error_code(std::errc::permission_denied),
                                source.string());
    }
    auto stem = target.stem().string();
    auto extension = target.extension().string();
    // An earlier copy set aside from the same name is kept too.
    for (int n = 2; fs::exists(fs::symlink_status(target)); ++n) {
        target.replace_filename(stem + " (" + std::to_string(n) + ")" + extension);
    }
    fs::rename(source, target);
    return target;
}

} // namespace qs
