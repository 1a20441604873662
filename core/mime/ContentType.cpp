#include "mime/ContentType.h"

#include "mime/HeaderParams.h"
#include "mime/TextTrim.h"

namespace qs {

std::optional<std::string> ContentType::charset() const {
    if (const std::string* value = param("charset")) {
        return *value;
    }
    return std::nullopt;
}

const std::string* ContentType::param(std::string_view name) const {
    auto it = params.find(std::string(name));
    return it == params.end() ? nullptr : &it->second;
}

const ContentType& ContentType::defaultText() {
    static const ContentType type{"text", "plain", {}};
    return type;
}

const ContentType& ContentType::defaultMessage() {
    static const ContentType type{"message", "rfc822", {}};
    return type;
}

std::optional<ContentType> ContentType::parse(std::string_view headerValue) {
    HeaderParams::Parsed parsed = HeaderParams::parse(headerValue);
    std::string value = TextTrim::asciiLower(parsed.value);
    size_t slash = value.find('/');
    // Exactly two pieces: one slash, and a non-empty type before it.
    if (slash == std::string::npos || value.find('/', slash + 1) != std::string::npos) {
        return std::nullopt;
    }
    std::string_view whole(value);
    std::string_view type = TextTrim::whitespace(whole.substr(0, slash));
    std::string_view subtype = TextTrim::whitespace(whole.substr(slash + 1));
    if (type.empty()) {
        return std::nullopt;
    }
    return ContentType{std::string(type), std::string(subtype), std::move(parsed.params)};
}

std::ostream& operator<<(std::ostream& out, const ContentType& type) {
    out << type.mimeType();
    for (const auto& [name, value] : type.params) {
        out << "; " << name << "=\"" << value << "\"";
    }
    return out;
}

} // namespace qs
