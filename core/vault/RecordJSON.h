#pragma once

// Decoding helpers shared by the vault records: required keys must be present with the right
// type, optional keys may be missing (or null), and numbers must fit their field exactly, so a
// damaged record is rejected as a whole rather than read as something else.

#include "support/JSON.h"

#include <limits>
#include <optional>
#include <string_view>

namespace qs::RecordJSON {

/// The value of a required key; throws nlohmann::json::out_of_range when it is missing.
inline const nlohmann::json& required(const nlohmann::json& object, std::string_view key) {
    return object.at(std::string(key));
}

/// An unsigned integer of type T; throws when the value is not an integer within T's range.
template <typename T>
T unsignedValue(const nlohmann::json& value) {
    if (value.is_number_unsigned() ||
        (value.is_number_integer() && value.get<std::int64_t>() >= 0)) {
        auto number = value.get<std::uint64_t>();
        if (number <= std::numeric_limits<T>::max()) {
            return static_cast<T>(number);
        }
    }
    throw nlohmann::json::type_error::create(302, "not an unsigned integer in range", &value);
}

/// A whole number (negative allowed).
inline std::int64_t integerValue(const nlohmann::json& value) {
    if (value.is_number_integer()) {
        if (value.is_number_unsigned() &&
            value.get<std::uint64_t>() > std::uint64_t(std::numeric_limits<std::int64_t>::max())) {
            throw nlohmann::json::type_error::create(302, "integer out of range", &value);
        }
        return value.get<std::int64_t>();
    }
    throw nlohmann::json::type_error::create(302, "not an integer", &value);
}

/// The value of an optional key, or nothing when the key is missing or null.
template <typename T>
std::optional<T> optional(const nlohmann::json& object, std::string_view key) {
    auto found = object.find(std::string(key));
    if (found == object.end() || found->is_null()) {
        return std::nullopt;
    }
    return found->template get<T>();
}

/// Combines a hash value into a running seed.
inline void hashCombine(size_t& seed, size_t value) {
    seed ^= value + 0x9e3779b97f4a7c15ull + (seed << 6) + (seed >> 2);
}

} // namespace qs::RecordJSON
