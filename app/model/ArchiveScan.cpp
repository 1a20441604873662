#include "model/ArchiveScan.h"

#include "support/FileIO.h"

#include <algorithm>
#include <cmath>
#include <sys/stat.h>

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

double modificationTime(const fs::path& path) {
    struct ::stat facts {};
    if (::stat(path.c_str(), &facts) != 0) {
        return 0;
    }
    return static_cast<double>(facts.st_mtim.tv_sec) +
           static_cast<double>(facts.st_mtim.tv_nsec) / 1e9;
}

void walkFolder(const fs::path& folder, const std::string& prefix,
                std::map<std::string, double>& found) {
    std::error_code error;
    fs::directory_iterator entries(folder, fs::directory_options::skip_permission_denied, error);
    if (error) {
        return;
    }
    for (auto end = fs::directory_iterator(); entries != end; entries.increment(error)) {
        if (error) {
            return;
        }
        const auto& entry = *entries;
        std::string name = entry.path().filename().string();
        if (name.empty() || name.front() == '.') {
            continue;
        }
        std::string key = prefix.empty() ? name : prefix + "/" + name;
        std::error_code ignored;
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
            walkFolder(entry.path(), key, found);
        } else if (isMessageFile(name) && entry.is_regular_file(ignored)) {
            found.emplace(std::move(key), modificationTime(entry.path()));
        }
    }
}

} // namespace

std::map<std::string, double> walk(const fs::path& root) {
    std::map<std::string, double> found;
    walkFolder(root, {}, found);
    return found;
}

std::optional<Result> run(const fs::path& root, const fs::path& indexFile, std::stop_token stop,
                          const Hooks& hooks) {
    Result result{SearchIndex::load(indexFile)};
    auto& index = result.index;
    auto files = walk(root);
    if (stop.stop_requested()) {
        return std::nullopt;
    }

    for (const auto& record : index.liveRecords()) {
        if (!files.contains(record.path)) {
            index.remove(record.path);
            result.changed = true;
        }
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
            hooks.progress(i + 1, pending.size(), index.liveRecords());
        }
    }
    if (stop.stop_requested()) {
        return std::nullopt;
    }

    if (result.changed) {
        if (index.needsCompaction()) {
            index.compact();
        }
        try {
            index.save(indexFile);
        } catch (const std::exception&) {
            // The index is a cache: the next scan rebuilds what this one couldn't keep.
        }
    }
    return result;
}

} // namespace qs::ArchiveScan
