#include "safety/HostMemo.h"

#include "safety/Domains.h"
#include "safety/TrackerTables.h"

#include <unordered_set>

namespace qs {

void HostMemo::reserve(size_t count) {
    if (facts_.size() + count > kMaxEntries) {
        facts_.clear();
        recent_ = {};
    }
}

HostMemo::Facts& HostMemo::facts(std::string_view name) {
    for (const Recent& recent : recent_) {
        if (recent.name && *recent.name == name) {
            return *recent.facts;
        }
    }
    auto it = facts_.find(name);
    if (it == facts_.end()) {
        it = facts_.emplace(std::string(name), Facts{Domains::registrable(name)}).first;
    }
    recent_[nextRecent_] = {&it->first, &it->second};
    nextRecent_ = (nextRecent_ + 1) % recent_.size();
    return it->second;
}

const std::string& HostMemo::registrable(std::string_view name) {
    reserve(1);
    return facts(name).registrable;
}

bool HostMemo::sameRegistrable(std::string_view a, std::string_view b) {
    reserve(2);
    const std::string& first = facts(a).registrable;
    return first == facts(b).registrable;
}

bool HostMemo::isTrackerService(std::string_view host) {
    reserve(1);
    Facts& f = facts(host);
    if (f.trackerService < 0) {
        // The host itself, each of its parent domains, and its registrable domain, looked up
        // in a set of the service domains rather than compared with each of them.
        static const std::unordered_set<std::string_view> services(
            TrackerTables::trackerDomains.begin(), TrackerTables::trackerDomains.end());
        bool known = services.contains(host) || services.contains(f.registrable);
        for (size_t dot = host.find('.'); !known && dot != std::string_view::npos;
             dot = host.find('.', dot + 1)) {
            known = services.contains(host.substr(dot + 1));
        }
        f.trackerService = known ? 1 : 0;
    }
    return f.trackerService == 1;
}

} // namespace qs
