#include "vault/FolderState.h"

#include "vault/RecordJSON.h"

#include <ostream>

namespace qs {

void to_json(nlohmann::json& json, const FolderState& state) {
    json = nlohmann::json{{"mailbox", state.mailbox},
                          {"directory", state.directory},
                          {"uidValidity", state.uidValidity},
                          {"highestUID", state.highestUID},
                          {"files", state.files}};
    if (state.lastRun) {
        json["lastRun"] = *state.lastRun;
    }
    if (state.sizes) {
        json["sizes"] = *state.sizes;
    }
    if (state.relinking) {
        json["relinking"] = true;
    }
}

void from_json(const nlohmann::json& json, FolderState& state) {
    using namespace RecordJSON;
    state.mailbox = required(json, "mailbox").get<std::string>();
    state.directory = required(json, "directory").get<std::string>();
    state.uidValidity = unsignedValue<std::uint32_t>(required(json, "uidValidity"));
    state.highestUID = unsignedValue<std::uint32_t>(required(json, "highestUID"));
    state.files = required(json, "files").get<std::map<std::string, std::string>>();
    state.lastRun = optional<Date>(json, "lastRun");
    state.sizes.reset();
    auto sizes = json.find("sizes");
    if (sizes != json.end() && !sizes->is_null()) {
        std::map<std::string, std::int64_t> decoded;
        for (const auto& [uid, size] : sizes->get_ref<const nlohmann::json::object_t&>()) {
            decoded.emplace(uid, integerValue(size));
        }
        state.sizes = std::move(decoded);
    }
    state.relinking = RecordJSON::optional<bool>(json, "relinking").value_or(false);
}

std::ostream& operator<<(std::ostream& out, const FolderState& state) {
    out << "FolderState{" << state.mailbox << " in \"" << state.directory << "\" validity "
        << state.uidValidity << " highest " << state.highestUID << " files {";
    bool first = true;
    for (const auto& [uid, path] : state.files) {
        out << (first ? "" : ", ") << uid << ": " << path;
        first = false;
    }
    out << "} lastRun " << (state.lastRun ? ISODate::format(*state.lastRun) : std::string("none"))
        << " sizes ";
    if (state.sizes) {
        out << '{';
        first = true;
        for (const auto& [uid, size] : *state.sizes) {
            out << (first ? "" : ", ") << uid << ": " << size;
            first = false;
        }
        out << '}';
    } else {
        out << "none";
    }
    return out << (state.relinking ? " relinking" : "") << '}';
}

} // namespace qs
