#pragma once

#include "model/MonthKey.h"
#include "search/MessageRecord.h"

#include <iosfwd>
#include <memory>
#include <vector>

namespace qs {

/// A record shared between the store's lists: `records`, `visible` and the groups hold the
/// same immutable record instead of three copies of it.
using RecordRef = std::shared_ptr<const MessageRecord>;

/// One month of the message list, its records newest first (or in relevance order when a
/// search's month came in one run). Identified by the key's ordinal.
struct MonthGroup {
    MonthKey key;
    std::vector<RecordRef> records;

    /// Equal by key and by the records' values.
    friend bool operator==(const MonthGroup& a, const MonthGroup& b);
};

std::ostream& operator<<(std::ostream& out, const MonthGroup& group);

} // namespace qs
