#pragma once

#include "model/MonthKey.h"
#include "search/MessageRecord.h"

#include <iosfwd>
#include <memory>
#include <span>
#include <vector>

namespace qs {

/// A record shared between the store's lists: `records`, `visible` and the groups hold the
/// same immutable record instead of three copies of it.
using RecordRef = std::shared_ptr<const MessageRecord>;

/// The records of a list, shared by whoever shows them: a list of everything is the
/// catalog's own, never a copy of a million references.
using RecordList = std::shared_ptr<const std::vector<RecordRef>>;

/// One month of the message list, its records newest first (or in relevance order when a
/// search's month came in one run): a run of a `RecordList` that `MonthGroups` keeps alive.
/// Identified by the key's ordinal.
struct MonthGroup {
    MonthKey key;
    std::span<const RecordRef> records;

    /// Equal by key and by the records' values.
    friend bool operator==(const MonthGroup& a, const MonthGroup& b);
};

/// A list cut into months: `groups` view runs of `records`.
struct MonthGroups {
    RecordList records = std::make_shared<const std::vector<RecordRef>>();
    std::vector<MonthGroup> groups;
};

std::ostream& operator<<(std::ostream& out, const MonthGroup& group);

} // namespace qs
