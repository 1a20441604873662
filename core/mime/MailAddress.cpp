#include "mime/MailAddress.h"

#include "mime/TextTrim.h"

namespace qs {

std::string MailAddress::formatted() const {
    if (name.empty()) {
        return email;
    }
    std::string out;
    out.reserve(name.size() + email.size() + 3);
    out.append(name).append(" <").append(email).push_back('>');
    return out;
}

std::string MailAddress::domain() const {
    std::string_view rest = email;
    // The last non-empty piece between `@` signs.
    while (!rest.empty() && rest.back() == '@') {
        rest.remove_suffix(1);
    }
    auto at = rest.rfind('@');
    if (at != std::string_view::npos) {
        rest.remove_prefix(at + 1);
    }
    return TextTrim::asciiLower(rest);
}

std::ostream& operator<<(std::ostream& out, const MailAddress& address) {
    return out << "MailAddress{name: \"" << address.name << "\", email: \"" << address.email
               << "\"}";
}

void to_json(nlohmann::json& json, const MailAddress& address) {
    json = nlohmann::json{{"name", address.name}, {"email", address.email}};
}

void from_json(const nlohmann::json& json, MailAddress& address) {
    address.name = json.at("name").get<std::string>();
    address.email = json.at("email").get<std::string>();
}

} // namespace qs
