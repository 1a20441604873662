#include "model/SidebarItem.h"

#include <ostream>

namespace qs {

std::ostream& operator<<(std::ostream& out, const SidebarItem& item) {
    switch (item.kind) {
    case SidebarItem::Kind::all:
        return out << "all";
    case SidebarItem::Kind::account:
        return out << "account(" << item.account << ")";
    case SidebarItem::Kind::folder:
        return out << "folder(" << item.account << ", " << item.folder << ")";
    case SidebarItem::Kind::smart:
        return out << "smart(" << item.smart << ")";
    case SidebarItem::Kind::saved:
        return out << "saved(" << item.saved.string() << ")";
    }
    return out;
}

} // namespace qs
