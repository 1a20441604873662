#include "model/ArchiveScan.h"

#include "search/SearchCache.h"
#include "support/FileIO.h"

#include <algorithm>
#include <cmath>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qs::ArchiveScan {

namespace {

namespace fs = std::filesystem;

bool isMessageFile(const std::string& name) {
    auto dot = name.rfind('.');
    if (dot == std::string::npos || name.size() - dot != 4) {
        return false;
    }
    std::string extension = name.substr(dot + 1);
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == "eml";
}

double seconds(const struct ::stat& facts) {
    return static_cast<double>(facts.st_mtim.tv_sec) +
           static_cast<double>(facts.st_mtim.tv_nsec) / 1e9;
}

// Walks by directory descriptors, so each entry is looked at relative to its folder (no path
// resolved again from the root) and the entry type comes from the listing where it can.
void walkFolder(int folder, const std::string& prefix, std::map<std::string, double>& found) {
    DIR* listing = ::fdopendir(folder);
    if (listing == nullptr) {
        ::close(folder);
        return;
    }
    while (const ::dirent* entry = ::readdir(listing)) {
        std::string name = entry->d_name;
        if (name.empty() || name.front() == '.') {
            continue;
        }
        std::string key = prefix.empty() ? name : prefix + "/" + name;
        unsigned char type = entry->d_type;
        if (type == DT_UNKNOWN) {
            struct ::stat facts {};
            if (::fstatat(::dirfd(listing), name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) != 0) {
                continue;
            }
            type = S_ISDIR(facts.st_mode) ? DT_DIR : S_ISLNK(facts.st_mode) ? DT_LNK : DT_REG;
        }
        if (type == DT_DIR) {
            int child = ::openat(::dirfd(listing), name.c_str(),
                                 O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child >= 0) {
                walkFolder(child, key, found);
            }
        } else if ((type == DT_REG || type == DT_LNK) && isMessageFile(name)) {
            // A link to a message counts as the message; a link to a folder isn't followed.
            struct ::stat facts {};
            if (::fstatat(::dirfd(listing), name.c_str(), &facts, 0) != 0) {
                continue;
            }
            if (S_ISREG(facts.st_mode)) {
                found.emplace(std::move(key), seconds(facts));
            }
        }
    }
    ::closedir(listing);
}

} // namespace

std::map<std::string, double> walk(const fs::path& root) {
    std::map<std::string, double> found;
    int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        walkFolder(folder, {}, found);
    }
    return found;
}

std::optional<Result> run(const fs::path& root, const fs::path& indexFile, std::stop_token stop,
                          const Hooks& hooks) {
    // Taken before the load, so that a cache made from this index never claims a newer file.
    auto loadedStamp = SearchCacheLayout::FileStamp::of(indexFile);
    Result result{SearchCache::loadIndex(SearchCache::beside(indexFile), indexFile)};
    auto& index = result.index;
    if (hooks.loaded) {
        hooks.loaded(index);
    }
    auto files = walk(root);
    if (stop.stop_requested()) {
        return std::nullopt;
    }

    std::vector<std::string> gone;
    for (int64_t id = 0; id < static_cast<int64_t>(index.slotCount()); ++id) {
        const MessageRecord* record = index.slot(id);
        if (record != nullptr && !files.contains(record->path)) {
            gone.push_back(record->path);
        }
    }
    for (const auto& path : gone) {
        index.remove(path);
        result.changed = true;
    }

    std::vector<const std::pair<const std::string, double>*> pending;
    for (const auto& file : files) {
        const MessageRecord* known = index.record(file.first);
        if (known == nullptr || std::abs(known->mtime - file.second) > mtimeTolerance) {
            pending.push_back(&file);
        }
    }
    // The map iterates in ascending byte order already: plain string order.
    if (hooks.started) {
        hooks.started(pending.size());
    }

    for (size_t i = 0; i < pending.size(); ++i) {
        if (stop.stop_requested()) {
            return std::nullopt;
        }
        const auto& [path, mtime] = *pending[i];
        std::string data;
        try {
            data = FileIO::read(root / path);
        } catch (const std::exception&) {
            continue;
        }
        ++result.filesRead;
        auto entry = SearchIndex::makeRecord(data, path, mtime);
        index.add(std::move(entry.record), entry.text);
        result.changed = true;
        if ((i + 1) % publishEvery == 0 && hooks.progress) {
            hooks.progress(i + 1, pending.size(), index);
        }
    }
    if (stop.stop_requested()) {
        return std::nullopt;
    }

    auto cache = SearchCache::beside(indexFile);
    if (result.changed) {
        if (index.needsCompaction()) {
            index.compact();
        }
        try {
            // The search cache follows the index file it was made from, never an index that
            // failed to save; it is written alongside the save.
            if (index.count() > 0) {
                SearchCache::save(index, indexFile);
            } else {
                index.save(indexFile);
            }
        } catch (const std::exception&) {
            // The index is a cache: the next scan rebuilds what this one couldn't keep.
        }
    } else if (index.count() > 0 && loadedStamp && !SearchCache::open(cache, indexFile)) {
        // Nothing changed, but the cache is missing or stale (its header tells).
        try {
            SearchCache::write(index, cache, *loadedStamp);
        } catch (const std::exception&) {
            // Rebuilt from index.json by the next search that finds it missing.
        }
    }
    return result;
}

} // namespace qs::ArchiveScan
