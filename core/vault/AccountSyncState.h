#pragma once

#include "vault/FolderState.h"

#include <iosfwd>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace qs {

/// What has been filed from one account: mailbox `name` → its state. Stored as
/// sync-{UUID}.json, one object with the single key "folders".
struct AccountSyncState {
    std::map<std::string, FolderState> folders;

    /// Compact JSON text of the sync file.
    std::string encode() const;
    /// Reads a sync file; nothing when the text is not JSON or anything in it is damaged.
    static std::optional<AccountSyncState> decode(std::string_view json);

    friend bool operator==(const AccountSyncState&, const AccountSyncState&) = default;
};

void to_json(nlohmann::json& json, const AccountSyncState& state);
/// Throws nlohmann::json::exception for a missing "folders" or a damaged folder state.
void from_json(const nlohmann::json& json, AccountSyncState& state);

std::ostream& operator<<(std::ostream& out, const AccountSyncState& state);

} // namespace qs
