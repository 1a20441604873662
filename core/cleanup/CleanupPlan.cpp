#include "cleanup/CleanupPlan.h"

#include <algorithm>
#include <ostream>

namespace qs {

namespace {

using Kind = CleanupItem::Status::Kind;

} // namespace

std::vector<CleanupItem> CleanupPlan::verified() const {
    std::vector<CleanupItem> result;
    std::copy_if(items.begin(), items.end(), std::back_inserter(result),
                 [](const CleanupItem& item) { return item.status.kind == Kind::verified; });
    return result;
}

std::vector<CleanupItem> CleanupPlan::unverified() const {
    std::vector<CleanupItem> result;
    std::copy_if(items.begin(), items.end(), std::back_inserter(result),
                 [](const CleanupItem& item) {
                     return item.status.kind != Kind::verified && item.status.kind != Kind::pending;
                 });
    return result;
}

int64_t CleanupPlan::pending() const {
    return std::count_if(items.begin(), items.end(),
                         [](const CleanupItem& item) { return item.status.kind == Kind::pending; });
}

int64_t CleanupPlan::verifiedBytes() const {
    int64_t total = 0;
    for (const CleanupItem& item : items) {
        if (item.status.kind == Kind::verified) {
            total += item.serverSize;
        }
    }
    return total;
}

std::ostream& operator<<(std::ostream& out, const CleanupPlan& plan) {
    out << "CleanupPlan(" << plan.mailbox << " before " << ISODate::format(plan.before)
        << ", uidValidity " << plan.uidValidity << ", " << plan.items.size() << " items, "
        << plan.otherDeletedOnServer << " other deleted, "
        << (plan.serverSupportsUIDPlus ? "UIDPLUS" : "no UIDPLUS") << ")";
    for (const CleanupItem& item : plan.items) {
        out << "\n  " << item;
    }
    return out;
}

} // namespace qs
