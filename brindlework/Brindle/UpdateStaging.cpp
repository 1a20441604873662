#include "Brindle/UpdateStaging.h"

#include "Brindle/AppBundle.h"
#include "Brindle/ArchiveUnpacker.h"
#include "Brindle/BundleSeal.h"
#include "Brindle/UpdateError.h"

#include <algorithm>
#include <vector>

namespace brindle::UpdateStaging {

namespace fs = std::filesystem;

fs::path baseDirectory(const fs::path& caches, const std::string& identifier) {
    return caches / (identifier.empty() ? std::string("app.brindle") : identifier) /
           "BrindleUpdate";
}

fs::path stage(std::string_view zip, const std::string& version, const fs::path& base) {
    std::error_code ignored;
    fs::remove_all(base, ignored);
    const fs::path directory = base / version;
    fs::create_directories(directory);
    // Unpacked straight from memory: the archive, already proved, never lies on disk.
    ArchiveUnpacker::unpack(zip, directory);

    std::vector<fs::path> entries;
    for (const auto& entry : fs::directory_iterator(directory))
        entries.push_back(entry.path());
    std::ranges::sort(entries);
    for (const fs::path& entry : entries) {
        if (fs::is_directory(entry) && fs::is_regular_file(entry / AppBundle::manifestName))
            return entry;
    }
    throw UpdateError{"The update didn’t contain an app."};
}

void validate(const fs::path& staged, const std::string& expectedVersion,
              const std::string& identifier, const std::optional<std::string>& publicKey) {
    const auto bundle = AppBundle::open(staged);
    if (!bundle || bundle->identifier != identifier || bundle->version != expectedVersion)
        throw UpdateError{"The downloaded update didn’t match this app."};
    if (!publicKey || !BundleSeal::check(staged, *publicKey))
        throw UpdateError{"The downloaded app’s code signature is damaged."};
}

} // namespace brindle::UpdateStaging
