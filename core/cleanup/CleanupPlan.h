#pragma once

#include "cleanup/CleanupItem.h"
#include "support/Date.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace qs {

/// A surveyed selection of one mailbox: the messages before a date, each paired with its local
/// copy, and what the server said about the folder as a whole. Lives in memory only; it gets
/// stale, which is why a release checks everything that matters again.
struct CleanupPlan {
    /// The mailbox's name on the server, as it goes on the wire.
    std::string mailbox;
    /// For people: the account's known folder of that name, else `mailbox`.
    std::string displayName;
    /// The chosen limit; messages from that day on are not in the selection.
    Date before;
    /// The UIDVALIDITY the survey saw; a release refuses to run under any other.
    uint32_t uidValidity = 0;
    /// Ascending by `uid`.
    std::vector<CleanupItem> items;
    /// Messages already marked \Deleted in the mailbox that aren't in this selection.
    int64_t otherDeletedOnServer = 0;
    /// Whether the survey's session offered UIDPLUS.
    bool serverSupportsUIDPlus = false;

    /// The `verified` items, in order.
    std::vector<CleanupItem> verified() const;
    /// The items that are neither `verified` nor `pending`, in order.
    std::vector<CleanupItem> unverified() const;
    /// How many items are still `pending`.
    int64_t pending() const;
    /// The server's sizes summed over the `verified` items.
    int64_t verifiedBytes() const;
    /// Whether a release can touch only its own messages: with UIDPLUS it names them, and
    /// without it plain EXPUNGE would also take the other marked ones.
    bool canDeleteSafely() const { return serverSupportsUIDPlus || otherDeletedOnServer == 0; }

    bool operator==(const CleanupPlan&) const = default;
};

std::ostream& operator<<(std::ostream& out, const CleanupPlan& plan);

} // namespace qs
