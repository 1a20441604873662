#include "vault/ArchiveLayout.h"

#include "support/AtomicFile.h"
#include "support/FileIO.h"

#include <algorithm>
#include <fcntl.h>
#include <ostream>
#include <sys/stat.h>
#include <system_error>

namespace qs {

namespace {

// The file at `path` holds exactly `data`. Anything that can't be read counts as different.
bool holdsExactly(const std::filesystem::path& path, std::string_view data) {
    struct stat info {};
    // A symbolic link is never the message, wherever it points.
    if (::lstat(path.c_str(), &info) != 0) {
        return false;
    }
    if (!S_ISREG(info.st_mode) || static_cast<uint64_t>(info.st_size) != data.size()) {
        return false;
    }
    try {
        return FileIO::read(path) == data;
    } catch (const std::system_error&) {
        return false;
    }
}

bool isTaken(const std::filesystem::path& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

void setModificationTime(const std::filesystem::path& path, Date date) {
    auto since = date.time_since_epoch();
    auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(since - seconds);
    struct timespec time {};
    time.tv_sec = static_cast<time_t>(seconds.count());
    time.tv_nsec = static_cast<long>(nanoseconds.count());
    const struct timespec times[2] = {time, time};
    // Linux keeps no settable creation time; the modification time is what file managers sort
    // by. A failure leaves the message safe with the date of writing, so it is ignored.
    (void)::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

} // namespace

std::filesystem::path ArchiveLayout::metaDirectory() const {
    return root / metaDirectoryName;
}

std::filesystem::path ArchiveLayout::indexURL() const {
    return metaDirectory() / "index.json";
}

std::filesystem::path ArchiveLayout::accountsURL() const {
    return metaDirectory() / "accounts.json";
}

std::filesystem::path ArchiveLayout::filtersURL() const {
    return metaDirectory() / "filters.json";
}

std::filesystem::path ArchiveLayout::syncURL(const MailAccount& account) const {
    return metaDirectory() / ("sync-" + account.id.string() + ".json");
}

void ArchiveLayout::ensure() const {
    std::filesystem::create_directories(metaDirectory());
}

AccountSyncState ArchiveLayout::loadSync(const MailAccount& account) const {
    try {
        if (auto state = AccountSyncState::decode(FileIO::read(syncURL(account)))) {
            return std::move(*state);
        }
    } catch (const std::system_error&) {
        // A missing or unreadable file means nothing filed yet; the next backup refiles and
        // finds the message files already in place.
    }
    return {};
}

void ArchiveLayout::saveSync(const AccountSyncState& state, const MailAccount& account) const {
    ensure();
    AtomicFile::write(syncURL(account), state.encode());
}

std::filesystem::path ArchiveLayout::url(std::string_view relative) const {
    // An account label of nothing but unsafe characters gives a folder path that starts with
    // "/", and a damaged record may say anything: joined as they are, they would leave the
    // vault.
    std::filesystem::path result = root;
    while (!relative.empty()) {
        auto slash = relative.find('/');
        auto segment = relative.substr(0, slash);
        if (!segment.empty() && segment != "." && segment != "..") {
            result /= segment;
        }
        relative.remove_prefix(slash == std::string_view::npos ? relative.size() : slash + 1);
    }
    return result;
}

bool ArchiveLayout::contains(const std::filesystem::path& path) const {
    std::error_code error;
    auto realRoot = std::filesystem::weakly_canonical(root, error);
    if (error) {
        return false;
    }
    auto real = std::filesystem::weakly_canonical(path, error);
    if (error) {
        return false;
    }
    auto [inRoot, inPath] =
        std::mismatch(realRoot.begin(), realRoot.end(), real.begin(), real.end());
    return inRoot == realRoot.end();
}

std::string ArchiveLayout::write(std::string_view data, std::string_view relative, Date date,
                                 Durability durability) const {
    auto folder = url(relative).parent_path();
    if (!contains(folder)) {
        throw std::system_error(std::make_error_code(std::errc::permission_denied),
                                folder.string());
    }
    std::filesystem::create_directories(folder);
    // Later candidates are always made from the name passed in, so a message that collides
    // with "x (2).eml" becomes "x (3).eml", never "x (2) (2).eml".
    std::string_view stem =
        relative.substr(0, relative.size() - std::min<size_t>(4, relative.size()));
    std::string candidate(relative);
    for (unsigned counter = 2;; ++counter) {
        auto path = url(candidate);
        if (!isTaken(path)) {
            break;
        }
        if (holdsExactly(path, data)) {
            return candidate;
        }
        candidate = std::string(stem) + " (" + std::to_string(counter) + ").eml";
    }
    auto path = url(candidate);
    switch (durability) {
    case Durability::flushed:
        AtomicFile::write(path, data);
        break;
    case Durability::deferred:
        AtomicFile::writeUnflushed(path, data);
        break;
    }
    setModificationTime(path, date);
    return candidate;
}

std::ostream& operator<<(std::ostream& out, const ArchiveLayout& layout) {
    return out << "ArchiveLayout{" << layout.root.string() << '}';
}

} // namespace qs
