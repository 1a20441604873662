#include "model/AccountDraft.h"

#include <QString>
#include <algorithm>
#include <array>
#include <cctype>

namespace qs {

namespace {

std::string trimmed(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size())).trimmed().toStdString();
}

std::string lower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(),
                           [](unsigned char c) { return char(std::tolower(c)); });
    return result;
}

} // namespace

bool AccountDraft::offersPlaintext() const {
    return isCustom() && trimmed(host) == localTestHost;
}

bool AccountDraft::canConnect() const {
    return !trimmed(username).empty() && !password.empty() &&
           (!isCustom() || !trimmed(host).empty());
}

std::string AccountDraft::usernameForUse() const {
    return trimmed(username);
}

IMAPServer AccountDraft::server() const {
    if (!isCustom()) {
        return {preset().host, preset().port, false};
    }
    bool ok = false;
    const uint port = QString::fromStdString(trimmed(this->port)).toUInt(&ok);
    return {trimmed(host), ok && port >= 1 && port <= 65535 ? uint16_t(port) : uint16_t(993),
            plaintext && offersPlaintext()};
}

MailAccount AccountDraft::account(const std::vector<IMAPMailbox>& mailboxes,
                                  const std::vector<std::string>& folders) const {
    MailAccount account;
    account.id = UUID::random();
    account.label = trimmed(label);
    if (account.label.empty()) {
        account.label = preset().name;
    }
    account.username = usernameForUse();
    account.server = server();
    account.provider = preset().id;
    for (const auto& mailbox : mailboxes) {
        if (std::ranges::find(folders, mailbox.name) != folders.end()) {
            account.folders.push_back(mailbox.name);
        }
    }
    account.knownFolders = mailboxes;
    return account;
}

std::string AccountDraft::role(const IMAPMailbox& mailbox) {
    if (lower(mailbox.name) == "inbox") {
        return "inbox";
    }
    static constexpr std::array uses{"\\all",  "\\archive", "\\drafts", "\\flagged",
                                     "\\junk", "\\sent",    "\\trash"};
    for (const auto& attribute : mailbox.attributes) {
        const std::string flag = lower(attribute);
        if (std::ranges::find(uses, flag) != uses.end()) {
            return flag.substr(1);
        }
    }
    return {};
}

std::vector<std::string> AccountDraft::defaultFolders(std::string_view presetId,
                                                      const std::vector<IMAPMailbox>& mailboxes) {
    if (presetId == "gmail") {
        auto all = std::ranges::find(mailboxes, std::string("all"), &AccountDraft::role);
        if (all != mailboxes.end()) {
            return {all->name};
        }
    }
    // INBOX has its role by name, so a server that marks no roles still gets INBOX here.
    std::vector<std::string> chosen;
    for (const auto& mailbox : mailboxes) {
        const std::string use = role(mailbox);
        if (use == "inbox" || use == "sent" || use == "archive") {
            chosen.push_back(mailbox.name);
        }
    }
    return chosen;
}

} // namespace qs
