#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace qs {

/// A finding about who sent a message, worded for the user as it stands.
struct SenderFlag {
    /// Stored as its name: "displayName", "lookalike", "punycode".
    enum class Kind { displayName, lookalike, punycode };

    Kind kind = Kind::displayName;
    /// The one-line finding; also what a message record keeps.
    std::string summary;
    /// The full sentence.
    std::string detail;

    bool operator==(const SenderFlag&) const = default;
};

std::string_view toString(SenderFlag::Kind kind);

/// The kind of that name; nothing for any other text.
std::optional<SenderFlag::Kind> senderFlagKindNamed(std::string_view name);

std::ostream& operator<<(std::ostream& out, SenderFlag::Kind kind);
std::ostream& operator<<(std::ostream& out, const SenderFlag& flag);

/// The kind is encoded as its name; decoding any other value throws nlohmann::json::exception.
void to_json(nlohmann::json& json, SenderFlag::Kind kind);
void from_json(const nlohmann::json& json, SenderFlag::Kind& kind);

} // namespace qs

template <>
struct std::hash<qs::SenderFlag> {
    size_t operator()(const qs::SenderFlag& flag) const noexcept {
        size_t h = std::hash<int>()(int(flag.kind));
        h ^= std::hash<std::string>()(flag.summary) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
        h ^= std::hash<std::string>()(flag.detail) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
        return h;
    }
};
