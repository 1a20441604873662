#include "FolderChoice.h"

#include <QString>
#include <algorithm>
#include <iostream>

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

const IMAPMailbox* findFolder(const std::vector<IMAPMailbox>& mailboxes, std::string_view wanted) {
    bool inbox =
        QString::fromUtf8(wanted.data(), static_cast<qsizetype>(wanted.size())).toUpper() ==
        "INBOX";
    for (const IMAPMailbox& mailbox : mailboxes) {
        if (mailbox.name == wanted || (inbox && mailboxRole(mailbox) == "inbox"))
            return &mailbox;
    }
    // Display names second: a folder whose display name is another's wire name is rare, and
    // the wire name is the exact one.
    for (const IMAPMailbox& mailbox : mailboxes) {
        if (mailbox.displayName == wanted)
            return &mailbox;
    }
    return nullptr;
}

std::optional<std::vector<std::string>> chooseFolders(const std::vector<IMAPMailbox>& mailboxes,
                                                      const std::vector<std::string>& wanted) {
    std::vector<std::string> names;
    for (const std::string& name : wanted) {
        const IMAPMailbox* found = findFolder(mailboxes, name);
        if (!found) {
            std::cerr << "The server has no folder named “" << name << "”. Its folders:";
            for (const IMAPMailbox& mailbox : mailboxes)
                std::cerr << (&mailbox == &mailboxes.front() ? " " : ", ") << mailbox.displayName;
            std::cerr << "\n";
            return std::nullopt;
        }
        if (std::find(names.begin(), names.end(), found->name) == names.end())
            names.push_back(found->name);
    }
    return names;
}

std::string displayNameOf(const std::vector<IMAPMailbox>& mailboxes, const std::string& name) {
    for (const IMAPMailbox& mailbox : mailboxes) {
        if (mailbox.name == name)
            return mailbox.displayName;
    }
    return name;
}

} // namespace qs::cli
