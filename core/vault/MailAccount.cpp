#include "vault/MailAccount.h"

#include "vault/FileNames.h"
#include "vault/RecordJSON.h"

#include <ostream>

namespace qs {

namespace {

// An account's folder name: short enough to read in a file manager, and well inside the
// 255-byte limit of a file name on common file systems.
constexpr size_t accountDirectoryCharacters = 60;
constexpr size_t accountDirectoryBytes = 150;

} // namespace

std::string MailAccount::directoryName() const {
    return FileNames::sanitize(label, accountDirectoryCharacters, accountDirectoryBytes);
}

std::string MailAccount::encodeList(const std::vector<MailAccount>& accounts) {
    return JSONRules::dump(nlohmann::json(accounts));
}

std::optional<std::vector<MailAccount>> MailAccount::decodeList(std::string_view json) {
    try {
        return nlohmann::json::parse(json).get<std::vector<MailAccount>>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

void to_json(nlohmann::json& json, const MailAccount& account) {
    json = nlohmann::json{{"id", account.id},
                          {"label", account.label},
                          {"username", account.username},
                          {"server", account.server},
                          {"provider", account.provider},
                          {"folders", account.folders},
                          {"knownFolders", account.knownFolders}};
    if (account.lastBackup) {
        json["lastBackup"] = *account.lastBackup;
    }
    if (account.passwordCommand) {
        json["passwordCommand"] = *account.passwordCommand;
    }
}

void from_json(const nlohmann::json& json, MailAccount& account) {
    using namespace RecordJSON;
    account.id = required(json, "id").get<UUID>();
    account.label = required(json, "label").get<std::string>();
    account.username = required(json, "username").get<std::string>();
    account.server = required(json, "server").get<IMAPServer>();
    account.provider = required(json, "provider").get<std::string>();
    account.folders = required(json, "folders").get<std::vector<std::string>>();
    account.knownFolders = required(json, "knownFolders").get<std::vector<IMAPMailbox>>();
    account.lastBackup = optional<Date>(json, "lastBackup");
    account.passwordCommand = optional<std::string>(json, "passwordCommand");
}

std::ostream& operator<<(std::ostream& out, const MailAccount& account) {
    out << "MailAccount{" << account.id.string() << " \"" << account.label << "\" "
        << account.username << " @ " << account.server << " provider " << account.provider
        << " folders [";
    for (size_t i = 0; i < account.folders.size(); ++i) {
        out << (i ? ", " : "") << account.folders[i];
    }
    out << "] known " << account.knownFolders.size() << " lastBackup "
        << (account.lastBackup ? ISODate::format(*account.lastBackup) : std::string("none"));
    if (account.passwordCommand) {
        out << " passwordCommand \"" << *account.passwordCommand << "\"";
    }
    return out << "}";
}

} // namespace qs

size_t std::hash<qs::MailAccount>::operator()(const qs::MailAccount& account) const noexcept {
    using qs::RecordJSON::hashCombine;
    std::hash<std::string> text;
    size_t seed = std::hash<qs::UUID>()(account.id);
    hashCombine(seed, text(account.label));
    hashCombine(seed, text(account.username));
    hashCombine(seed, std::hash<qs::IMAPServer>()(account.server));
    hashCombine(seed, text(account.provider));
    for (const auto& folder : account.folders) {
        hashCombine(seed, text(folder));
    }
    for (const auto& mailbox : account.knownFolders) {
        hashCombine(seed, text(mailbox.name));
        hashCombine(seed, text(mailbox.displayName));
        hashCombine(seed, mailbox.delimiter ? text(*mailbox.delimiter) : 0);
        for (const auto& attribute : mailbox.attributes) {
            hashCombine(seed, text(attribute));
        }
    }
    hashCombine(seed, account.lastBackup ? std::hash<std::int64_t>()(
                                               account.lastBackup->time_since_epoch().count())
                                         : 0);
    hashCombine(seed, account.passwordCommand ? text(*account.passwordCommand) : 0);
    return seed;
}
