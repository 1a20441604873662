#include "model/SavedSearch.h"

#include "support/JSON.h"

#include <ostream>

namespace qs {

std::string SavedSearch::encodeList(const std::vector<SavedSearch>& searches) {
    return JSONRules::dump(nlohmann::json(searches));
}

std::optional<std::vector<SavedSearch>> SavedSearch::decodeList(std::string_view json) {
    try {
        return nlohmann::json::parse(json).get<std::vector<SavedSearch>>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

void to_json(nlohmann::json& json, const SavedSearch& search) {
    json = nlohmann::json{{"id", search.id}, {"name", search.name}, {"query", search.query}};
}

void from_json(const nlohmann::json& json, SavedSearch& search) {
    search.id = json.at("id").get<UUID>();
    search.name = json.at("name").get<std::string>();
    search.query = json.at("query").get<std::string>();
}

std::ostream& operator<<(std::ostream& out, const SavedSearch& search) {
    return out << "SavedSearch{" << search.id.string() << " \"" << search.name << "\" \""
               << search.query << "\"}";
}

} // namespace qs
