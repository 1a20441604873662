#include "cleanup/CleanupItem.h"

#include <ostream>

namespace qs {

std::optional<std::string> CleanupItem::keptReason() const {
    switch (status.kind) {
    case Status::Kind::pending:
    case Status::Kind::verified:
        return std::nullopt;
    case Status::Kind::sizeMismatch:
        return "Local copy is " + std::to_string(status.local) + " bytes, the server’s is " +
               std::to_string(status.server);
    case Status::Kind::notBackedUp:
        return "Not in your vault yet — run a backup first";
    case Status::Kind::unreadable:
        return "Local copy doesn’t read as a complete email";
    }
    return std::nullopt;
}

std::ostream& operator<<(std::ostream& out, const CleanupItem::Status& status) {
    using Kind = CleanupItem::Status::Kind;
    switch (status.kind) {
    case Kind::pending:
        return out << "pending";
    case Kind::verified:
        return out << "verified";
    case Kind::sizeMismatch:
        return out << "sizeMismatch(local " << status.local << ", server " << status.server << ")";
    case Kind::notBackedUp:
        return out << "notBackedUp";
    case Kind::unreadable:
        return out << "unreadable";
    }
    return out;
}

std::ostream& operator<<(std::ostream& out, const CleanupItem& item) {
    out << "CleanupItem(uid " << item.uid << ", " << item.serverSize << " bytes, ";
    out << (item.localPath ? *item.localPath : std::string("no local copy"));
    return out << ", " << item.status << ")";
}

} // namespace qs
