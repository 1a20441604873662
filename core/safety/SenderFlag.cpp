#include "safety/SenderFlag.h"

namespace qs {

std::string_view toString(SenderFlag::Kind kind) {
    switch (kind) {
    case SenderFlag::Kind::displayName:
        return "displayName";
    case SenderFlag::Kind::lookalike:
        return "lookalike";
    case SenderFlag::Kind::punycode:
        return "punycode";
    }
    return "displayName";
}

std::optional<SenderFlag::Kind> senderFlagKindNamed(std::string_view name) {
    for (auto kind :
         {SenderFlag::Kind::displayName, SenderFlag::Kind::lookalike, SenderFlag::Kind::punycode}) {
        if (toString(kind) == name) {
            return kind;
        }
    }
    return std::nullopt;
}

std::ostream& operator<<(std::ostream& out, SenderFlag::Kind kind) {
    return out << toString(kind);
}

std::ostream& operator<<(std::ostream& out, const SenderFlag& flag) {
    return out << "SenderFlag{" << flag.kind << ", \"" << flag.summary << "\", \"" << flag.detail
               << "\"}";
}

void to_json(nlohmann::json& json, SenderFlag::Kind kind) {
    json = std::string(toString(kind));
}

void from_json(const nlohmann::json& json, SenderFlag::Kind& kind) {
    auto parsed = senderFlagKindNamed(json.get_ref<const std::string&>());
    if (!parsed) {
        throw nlohmann::json::other_error::create(501, "not a sender flag kind", &json);
    }
    kind = *parsed;
}

} // namespace qs
