#include "model/FolderSummary.h"

#include <ostream>

namespace qs {

std::ostream& operator<<(std::ostream& out, const FolderSummary& summary) {
    return out << summary.account << "/" << summary.folder << ": " << summary.count;
}

} // namespace qs
