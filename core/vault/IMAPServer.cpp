#include "vault/IMAPServer.h"

#include "vault/RecordJSON.h"

#include <ostream>

namespace qs {

void to_json(nlohmann::json& json, const IMAPServer& server) {
    json = nlohmann::json{{"host", server.host},
                          {"port", server.port},
                          {"plaintextLocalDev", server.plaintextLocalDev}};
}

void from_json(const nlohmann::json& json, IMAPServer& server) {
    using namespace RecordJSON;
    server.host = required(json, "host").get<std::string>();
    server.port = unsignedValue<std::uint16_t>(required(json, "port"));
    server.plaintextLocalDev = required(json, "plaintextLocalDev").get<bool>();
}

std::ostream& operator<<(std::ostream& out, const IMAPServer& server) {
    return out << server.host << ':' << server.port
               << (server.plaintextLocalDev ? " (plaintext)" : "");
}

} // namespace qs

size_t std::hash<qs::IMAPServer>::operator()(const qs::IMAPServer& server) const noexcept {
    size_t seed = std::hash<std::string>()(server.host);
    qs::RecordJSON::hashCombine(seed, server.port);
    qs::RecordJSON::hashCombine(seed, server.plaintextLocalDev ? 1 : 0);
    return seed;
}
