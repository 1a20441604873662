#include "imap/IMAPResponse.h"

namespace qs {

namespace {

void printCodeAndText(std::ostream& out, const std::optional<std::string>& code,
                      const std::string& text) {
    if (code) {
        out << " [" << *code << ']';
    }
    out << " \"" << text << '"';
}

} // namespace

std::ostream& operator<<(std::ostream& out, const IMAPResponse::Tagged& response) {
    out << "tagged(" << response.tag << ' ' << response.status;
    printCodeAndText(out, response.code, response.text);
    return out << ')';
}

std::ostream& operator<<(std::ostream& out, const IMAPResponse::UntaggedStatus& response) {
    out << "untaggedStatus(" << response.status;
    printCodeAndText(out, response.code, response.text);
    return out << ')';
}

std::ostream& operator<<(std::ostream& out, const IMAPResponse::Untagged& response) {
    out << "untagged(";
    bool first = true;
    for (const auto& value : response.values) {
        out << (first ? "" : " ") << value;
        first = false;
    }
    return out << ')';
}

std::ostream& operator<<(std::ostream& out, const IMAPResponse::Continuation& response) {
    return out << "continuation(\"" << response.text << "\")";
}

std::ostream& operator<<(std::ostream& out, const IMAPResponse& response) {
    std::visit([&out](const auto& value) { out << value; }, response.value());
    return out;
}

} // namespace qs
