#pragma once

#include "model/SmartFilter.h"
#include "support/UUID.h"

#include <iosfwd>
#include <string>

namespace qs {

/// What the sidebar has selected: an account folder, one folder of it, a smart filter, a saved
/// search by id, or everything. Equal by kind and payload; payload fields that the kind
/// doesn't use stay at their defaults.
struct SidebarItem {
    enum class Kind { all, account, folder, smart, saved };

    Kind kind = Kind::all;
    /// `account` and `folder`: the account folder's name.
    std::string account;
    /// `folder`: the folder's directory name.
    std::string folder;
    /// `smart`: the filter.
    SmartFilter smart = SmartFilter::recent;
    /// `saved`: the saved search's id.
    UUID saved;

    static SidebarItem everything() { return {}; }
    static SidebarItem ofAccount(std::string account) {
        return {Kind::account, std::move(account), {}, SmartFilter::recent, {}};
    }
    static SidebarItem ofFolder(std::string account, std::string folder) {
        return {Kind::folder, std::move(account), std::move(folder), SmartFilter::recent, {}};
    }
    static SidebarItem ofSmart(SmartFilter filter) { return {Kind::smart, {}, {}, filter, {}}; }
    static SidebarItem ofSaved(UUID id) { return {Kind::saved, {}, {}, SmartFilter::recent, id}; }

    friend bool operator==(const SidebarItem&, const SidebarItem&) = default;
};

std::ostream& operator<<(std::ostream& out, const SidebarItem& item);

} // namespace qs
