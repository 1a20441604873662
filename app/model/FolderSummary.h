#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

namespace qs {

/// One folder of one account in the sidebar, with its message count. Identified by account
/// and folder.
struct FolderSummary {
    std::string account;
    std::string folder;
    int64_t count = 0;

    friend bool operator==(const FolderSummary&, const FolderSummary&) = default;
};

std::ostream& operator<<(std::ostream& out, const FolderSummary& summary);

} // namespace qs
