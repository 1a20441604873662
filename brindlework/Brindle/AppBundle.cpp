#include "Brindle/AppBundle.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <sstream>

namespace brindle {

namespace fs = std::filesystem;

std::optional<AppBundle> AppBundle::open(const fs::path& directory) {
    std::ifstream file(directory / manifestName, std::ios::binary);
    if (!file)
        return std::nullopt;
    std::stringstream text;
    text << file.rdbuf();
    const auto json = nlohmann::json::parse(text.str(), nullptr, false);
    if (json.is_discarded() || !json.is_object())
        return std::nullopt;
    AppBundle bundle{directory, {}, {}, {}, {}};
    for (auto [key, into] :
         {std::pair{"identifier", &bundle.identifier}, std::pair{"version", &bundle.version},
          std::pair{"name", &bundle.name}, std::pair{"executable", &bundle.executable}}) {
        auto found = json.find(key);
        if (found == json.end() || !found->is_string() || found->get<std::string>().empty())
            return std::nullopt;
        *into = found->get<std::string>();
    }
    return bundle;
}

std::optional<AppBundle> AppBundle::containing(const fs::path& program) {
    std::error_code error;
    const fs::path folder = fs::weakly_canonical(program, error).parent_path();
    // Only the program's folder ("quernstead/quernstead") and the one above it
    // ("quernstead/bin/quernstead"): a manifest further up belongs to something else.
    if (auto bundle = open(folder))
        return bundle;
    return open(folder.parent_path());
}

std::string AppBundle::manifest() const {
    return nlohmann::json{{"identifier", identifier},
                          {"version", version},
                          {"name", name},
                          {"executable", executable}}
        .dump();
}

} // namespace brindle
