#include "backup/ImportOutcome.h"

#include <ostream>

namespace qs {

std::ostream& operator<<(std::ostream& out, const ImportOutcome& outcome) {
    return out << "ImportOutcome{" << outcome.path.string() << ", imported: " << outcome.imported
               << ", skipped: " << outcome.skipped << ", reason: " << int(outcome.reason)
               << ", error: " << outcome.error.message() << '}';
}

} // namespace qs
