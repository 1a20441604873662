#pragma once

// The shared JSON rules of every record: compact output, dates as ISO 8601 in whole seconds in
// UTC with "Z", UUIDs in canonical upper case. Records use nlohmann::json with these
// conversions; decoding a malformed value throws nlohmann::json::exception.

#include "support/Date.h"
#include "support/UUID.h"

#include <nlohmann/json.hpp>

namespace qs {

inline void to_json(nlohmann::json& json, const UUID& id) {
    json = id.string();
}

inline void from_json(const nlohmann::json& json, UUID& id) {
    auto parsed = UUID::parse(json.get_ref<const std::string&>());
    if (!parsed) {
        throw nlohmann::json::other_error::create(501, "not a UUID", &json);
    }
    id = *parsed;
}

namespace JSONRules {

/// Compact UTF-8 text; invalid UTF-8 in strings is replaced rather than thrown on.
inline std::string dump(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace JSONRules

} // namespace qs

template <>
struct nlohmann::adl_serializer<qs::Date> {
    static void to_json(nlohmann::json& json, const qs::Date& date) {
        json = qs::ISODate::format(date);
    }
    static void from_json(const nlohmann::json& json, qs::Date& date) {
        auto parsed = qs::ISODate::parse(json.get_ref<const std::string&>());
        if (!parsed) {
            throw nlohmann::json::other_error::create(501, "not an ISO 8601 date", &json);
        }
        date = *parsed;
    }
};
