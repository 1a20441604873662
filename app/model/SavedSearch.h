#pragma once

#include "support/UUID.h"

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// A search the user kept under a name; identified by `id`, equal over all three fields.
/// filters.json holds them as one JSON array in the user's order, each object with exactly
/// the keys "id", "name" and "query".
struct SavedSearch {
    UUID id;
    std::string name;
    std::string query;

    /// filters.json: a compact JSON array.
    static std::string encodeList(const std::vector<SavedSearch>& searches);
    /// Reads filters.json; nothing when it is not JSON or any entry is damaged.
    static std::optional<std::vector<SavedSearch>> decodeList(std::string_view json);

    friend bool operator==(const SavedSearch&, const SavedSearch&) = default;
};

void to_json(nlohmann::json& json, const SavedSearch& search);
/// Throws nlohmann::json::exception for a missing key or a value of the wrong type.
void from_json(const nlohmann::json& json, SavedSearch& search);

std::ostream& operator<<(std::ostream& out, const SavedSearch& search);

} // namespace qs
