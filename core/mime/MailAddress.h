#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

namespace qs {

/// A display name and an e-mail address, as text. Persisted as a JSON object with exactly the
/// keys "name" and "email", both required.
struct MailAddress {
    /// Decoded display name; empty if none.
    std::string name;
    /// The address as written, case kept; never decoded.
    std::string email;

    /// `name` if it isn't empty, otherwise `email`.
    const std::string& display() const { return name.empty() ? email : name; }

    /// "{name} <{email}>" if `name` isn't empty, otherwise `email`.
    std::string formatted() const;

    /// The last non-empty piece of `email` split at `@`, lower-cased (ASCII); empty if there is
    /// none. An address without `@` thus yields itself, lower-cased.
    std::string domain() const;

    bool operator==(const MailAddress&) const = default;
};

std::ostream& operator<<(std::ostream& out, const MailAddress& address);

/// Throws nlohmann::json::exception when a key is missing or not a string.
void to_json(nlohmann::json& json, const MailAddress& address);
void from_json(const nlohmann::json& json, MailAddress& address);

} // namespace qs

template <>
struct std::hash<qs::MailAddress> {
    size_t operator()(const qs::MailAddress& address) const noexcept {
        size_t h = std::hash<std::string>()(address.name);
        return h ^ (std::hash<std::string>()(address.email) + 0x9e3779b97f4a7c15ULL + (h << 6) +
                    (h >> 2));
    }
};
