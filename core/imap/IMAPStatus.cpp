#include "imap/IMAPStatus.h"

namespace qs {

std::string_view rawValue(IMAPStatus status) {
    switch (status) {
    case IMAPStatus::ok:
        return "OK";
    case IMAPStatus::no:
        return "NO";
    case IMAPStatus::bad:
        return "BAD";
    case IMAPStatus::preauth:
        return "PREAUTH";
    case IMAPStatus::bye:
        return "BYE";
    }
    return "?";
}

std::optional<IMAPStatus> imapStatus(std::string_view word) {
    for (auto status :
         {IMAPStatus::ok, IMAPStatus::no, IMAPStatus::bad, IMAPStatus::preauth, IMAPStatus::bye}) {
        if (rawValue(status) == word) {
            return status;
        }
    }
    return std::nullopt;
}

std::ostream& operator<<(std::ostream& out, IMAPStatus status) {
    return out << rawValue(status);
}

} // namespace qs
