#include "vault/AccountSyncState.h"

#include "vault/RecordJSON.h"

#include <ostream>

namespace qs {

std::string AccountSyncState::encode() const {
    return JSONRules::dump(nlohmann::json(*this));
}

std::optional<AccountSyncState> AccountSyncState::decode(std::string_view json) {
    try {
        return nlohmann::json::parse(json).get<AccountSyncState>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

void to_json(nlohmann::json& json, const AccountSyncState& state) {
    json = nlohmann::json{{"folders", state.folders}};
}

void from_json(const nlohmann::json& json, AccountSyncState& state) {
    state.folders = RecordJSON::required(json, "folders").get<std::map<std::string, FolderState>>();
}

std::ostream& operator<<(std::ostream& out, const AccountSyncState& state) {
    out << "AccountSyncState{";
    for (const auto& [name, folder] : state.folders) {
        out << "\n  " << name << ": " << folder;
    }
    return out << '}';
}

} // namespace qs
