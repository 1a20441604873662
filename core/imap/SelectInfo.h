#pragma once

#include <cstdint>
#include <optional>
#include <ostream>

namespace qs {

/// What opening a folder (SELECT or EXAMINE) told.
struct SelectInfo {
    /// From `[UIDVALIDITY n]`; 0 when the server gave none or a bad number.
    uint32_t uidValidity = 0;
    /// From the last `n EXISTS`; 0 when none was seen.
    int64_t exists = 0;
    /// From `[UIDNEXT n]`.
    std::optional<uint32_t> uidNext;
    /// As requested, unless the server answered `[READ-WRITE]`, which makes it false.
    bool readOnly = false;

    bool operator==(const SelectInfo&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const SelectInfo& info) {
    out << "SelectInfo(uidValidity " << info.uidValidity << ", exists " << info.exists
        << ", uidNext ";
    if (info.uidNext) {
        out << *info.uidNext;
    } else {
        out << "none";
    }
    return out << (info.readOnly ? ", read-only)" : ", read-write)");
}

} // namespace qs
