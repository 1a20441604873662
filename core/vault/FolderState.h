#pragma once

#include "support/Date.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace qs {

/// What is known of one mailbox of one account. In the sync file every key is required except
/// "lastRun" and "sizes", which are left out while absent, and "relinking", left out while
/// false.
struct FolderState {
    /// The mailbox's IMAP `name`.
    std::string mailbox;
    /// Vault-relative "{accountDir}/{folderDir}", fixed when the state is first made; a later
    /// rename of the account label does not move it.
    std::string directory;
    /// The UIDVALIDITY for which `highestUID` and `files` hold; 0 until the first SELECT has
    /// been filed.
    std::uint32_t uidValidity = 0;
    /// The greatest UID filed under `uidValidity`; the next backup asks only for UIDs above it.
    std::uint32_t highestUID = 0;
    /// UID in decimal → vault-relative path of that message's file.
    std::map<std::string, std::string> files;
    /// When this folder last completed a backup pass.
    std::optional<Date> lastRun;
    /// UID in decimal → the size the server reported (else the size of the body written).
    /// Absent in state files written before sizes were kept.
    std::optional<std::map<std::string, std::int64_t>> sizes;
    /// The UIDVALIDITY changed and the folder hasn't yet been walked whole under the new one:
    /// until then every run recognises the files already in the folder by size and bytes
    /// rather than writing them again under their new UIDs.
    bool relinking = false;

    friend bool operator==(const FolderState&, const FolderState&) = default;
};

void to_json(nlohmann::json& json, const FolderState& state);
/// Throws nlohmann::json::exception for a missing required key or a value of the wrong type
/// or range.
void from_json(const nlohmann::json& json, FolderState& state);

std::ostream& operator<<(std::ostream& out, const FolderState& state);

} // namespace qs
