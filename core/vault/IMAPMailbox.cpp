#include "vault/IMAPMailbox.h"

#include "vault/RecordJSON.h"

#include <algorithm>
#include <ostream>

namespace qs {

namespace {

bool equalsIgnoringASCIICase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, [](char x, char y) {
        auto lower = [](char c) {
            return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
        };
        return lower(x) == lower(y);
    });
}

} // namespace

bool IMAPMailbox::isSelectable() const {
    return std::ranges::none_of(attributes, [](const std::string& attribute) {
        return equalsIgnoringASCIICase(attribute, "\\Noselect") ||
               equalsIgnoringASCIICase(attribute, "\\NonExistent");
    });
}

void to_json(nlohmann::json& json, const IMAPMailbox& mailbox) {
    json = nlohmann::json{{"name", mailbox.name},
                          {"displayName", mailbox.displayName},
                          {"attributes", mailbox.attributes}};
    if (mailbox.delimiter) {
        json["delimiter"] = *mailbox.delimiter;
    }
}

void from_json(const nlohmann::json& json, IMAPMailbox& mailbox) {
    using namespace RecordJSON;
    mailbox.name = required(json, "name").get<std::string>();
    mailbox.displayName = required(json, "displayName").get<std::string>();
    mailbox.delimiter = optional<std::string>(json, "delimiter");
    mailbox.attributes = required(json, "attributes").get<std::vector<std::string>>();
}

std::ostream& operator<<(std::ostream& out, const IMAPMailbox& mailbox) {
    out << "IMAPMailbox{" << mailbox.name << " \"" << mailbox.displayName << "\" delimiter "
        << (mailbox.delimiter ? "\"" + *mailbox.delimiter + "\"" : std::string("NIL")) << " [";
    for (size_t i = 0; i < mailbox.attributes.size(); ++i) {
        out << (i ? " " : "") << mailbox.attributes[i];
    }
    return out << "]}";
}

} // namespace qs
