#include "model/MonthGroup.h"

#include <algorithm>
#include <ostream>

namespace qs {

bool operator==(const MonthGroup& a, const MonthGroup& b) {
    return a.key == b.key &&
           std::ranges::equal(a.records, b.records,
                              [](const RecordRef& x, const RecordRef& y) { return *x == *y; });
}

std::ostream& operator<<(std::ostream& out, const MonthGroup& group) {
    out << group.key << " [";
    for (const auto& record : group.records) {
        out << " " << record->path;
    }
    return out << " ]";
}

} // namespace qs
