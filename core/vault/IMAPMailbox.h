#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace qs {

/// One mailbox as the server listed it. Persisted in account records as
/// {"name", "displayName", "delimiter"?, "attributes"}: `delimiter` may be missing (NIL),
/// the other three keys are required.
struct IMAPMailbox {
    /// Exactly as the server encoded it (modified UTF-7); what goes back on the wire.
    std::string name;
    /// `name` decoded, for people.
    std::string displayName;
    /// Hierarchy separator; absent for NIL.
    std::optional<std::string> delimiter;
    /// Flags as the server spelled them, such as "\Noselect".
    std::vector<std::string> attributes;

    /// False when any attribute is \Noselect or \NonExistent (ignoring case); true otherwise,
    /// also for an empty list.
    bool isSelectable() const;

    friend bool operator==(const IMAPMailbox&, const IMAPMailbox&) = default;
};

void to_json(nlohmann::json& json, const IMAPMailbox& mailbox);
/// Throws nlohmann::json::exception for a missing required key or a value of the wrong type.
void from_json(const nlohmann::json& json, IMAPMailbox& mailbox);

std::ostream& operator<<(std::ostream& out, const IMAPMailbox& mailbox);

} // namespace qs
