// Any bytes as a sync file: whatever directories and file paths a damaged or hostile record
// holds, each names a place below the vault's root and never the root's parent or a sibling.
#include "vault/AccountSyncState.h"
#include "vault/ArchiveLayout.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

const qs::ArchiveLayout layout{"/vault/root"};

void checkInside(std::string_view relative) {
    auto path = layout.url(relative).lexically_normal();
    auto [inRoot, inPath] =
        std::mismatch(layout.root.begin(), layout.root.end(), path.begin(), path.end());
    if (inRoot != layout.root.end()) {
        std::abort();
    }
    for (; inPath != path.end(); ++inPath) {
        if (*inPath == "..") {
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    // The raw bytes as one path, then every path a decoded record holds.
    checkInside(bytes);
    if (auto state = qs::AccountSyncState::decode(bytes)) {
        for (const auto& [mailbox, folder] : state->folders) {
            checkInside(folder.directory);
            for (const auto& [uid, path] : folder.files) {
                checkInside(path);
            }
        }
    }
    return 0;
}
