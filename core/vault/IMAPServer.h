#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace qs {

/// The address of an IMAP server, persisted inside an account record as
/// {"host": ..., "port": ..., "plaintextLocalDev": ...}; all three keys are required.
struct IMAPServer {
    std::string host;
    /// The account forms fill in 993 (IMAP over TLS).
    std::uint16_t port = 993;
    /// Speak without TLS; honoured only for the host 127.0.0.1 (local development).
    bool plaintextLocalDev = false;

    friend bool operator==(const IMAPServer&, const IMAPServer&) = default;
};

void to_json(nlohmann::json& json, const IMAPServer& server);
/// Throws nlohmann::json::exception for a missing key or a value of the wrong type or range.
void from_json(const nlohmann::json& json, IMAPServer& server);

std::ostream& operator<<(std::ostream& out, const IMAPServer& server);

} // namespace qs

template <>
struct std::hash<qs::IMAPServer> {
    size_t operator()(const qs::IMAPServer& server) const noexcept;
};
