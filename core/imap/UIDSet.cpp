#include "imap/UIDSet.h"

#include <algorithm>

namespace qs::UIDSet {

std::string string(std::vector<uint32_t> uids) {
    std::sort(uids.begin(), uids.end());
    uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
    std::string out;
    for (size_t i = 0; i < uids.size();) {
        size_t last = i;
        while (last + 1 < uids.size() && uids[last + 1] == uids[last] + 1) {
            ++last;
        }
        if (!out.empty()) {
            out += ',';
        }
        out += std::to_string(uids[i]);
        if (last > i) {
            out += ':' + std::to_string(uids[last]);
        }
        i = last + 1;
    }
    return out;
}

} // namespace qs::UIDSet
