#include "FolderChoice.h"

#include <QString>

namespace qs::cli {

std::optional<std::string> mailboxRole(const IMAPMailbox& mailbox) {
    if (QString::fromStdString(mailbox.name).toUpper() == "INBOX")
        return "inbox";
    for (const std::string& attribute : mailbox.attributes) {
        QString word = QString::fromStdString(attribute).toLower();
        for (const char* role : {"sent", "archive", "all", "drafts", "junk", "trash", "flagged"}) {
            if (word == QString("\\") + role)
                return role;
        }
    }
    return std::nullopt;
}

std::vector<std::string> defaultFolders(const std::vector<IMAPMailbox>& mailboxes,
                                        std::string_view provider) {
    if (provider == "gmail") {
        for (const IMAPMailbox& mailbox : mailboxes) {
            if (mailboxRole(mailbox) == "all")
                return {mailbox.name};
        }
    }
    std::vector<std::string> chosen;
    for (const IMAPMailbox& mailbox : mailboxes) {
        auto role = mailboxRole(mailbox);
        if (role == "inbox" || role == "sent" || role == "archive")
            chosen.push_back(mailbox.name);
    }
    if (chosen.empty()) {
        for (const IMAPMailbox& mailbox : mailboxes) {
            if (mailbox.name == "INBOX")
                chosen.push_back(mailbox.name);
        }
    }
    return chosen;
}

} // namespace qs::cli
