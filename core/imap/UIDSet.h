#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qs::UIDSet {

/// The IMAP sequence set of `uids`, in any order and with repeats: duplicates dropped, sorted,
/// runs of consecutive numbers as `first:last`, pieces joined by commas. 5, 1, 2, 3, 3, 9, 10
/// gives "1:3,5,9:10"; nothing gives "". Never split, whatever its length.
std::string string(std::vector<uint32_t> uids);

} // namespace qs::UIDSet
