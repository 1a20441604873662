#pragma once

#include <ostream>

namespace qs {

/// One folder's row in the backup ledger.
struct LedgerLine {
    /// This folder is being worked on.
    bool running = false;
    /// Messages filed, and to file.
    int done = 0;
    int total = 0;
    /// This folder is through.
    bool finished = false;
    /// Messages filed in this run.
    int newMessages = 0;

    friend bool operator==(const LedgerLine&, const LedgerLine&) = default;
    friend std::ostream& operator<<(std::ostream& out, const LedgerLine& line) {
        return out << "{running " << line.running << ", " << line.done << "/" << line.total
                   << ", finished " << line.finished << ", new " << line.newMessages << "}";
    }
};

} // namespace qs
