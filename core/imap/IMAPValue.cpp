#include "imap/IMAPValue.h"

#include "support/Unicode.h"

#include <cstdio>
#include <utility>

namespace qs {

namespace {

/// Each byte as the code point of the same number, in UTF-8.
std::string latin1ToUTF8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes) {
        if (byte < 0x80) {
            out += char(byte);
        } else {
            out += char(0xC0 | (byte >> 6));
            out += char(0x80 | (byte & 0x3F));
        }
    }
    return out;
}

// Printed strings are cut here so that a failing test on a message body stays readable.
constexpr std::size_t printedStringLimit = 120;

} // namespace

IMAPValue IMAPValue::atom(std::string text) {
    IMAPValue value;
    value.kind_ = Kind::atom;
    value.bytes_ = std::move(text);
    return value;
}

IMAPValue IMAPValue::string(std::string bytes) {
    IMAPValue value;
    value.kind_ = Kind::string;
    value.bytes_ = std::move(bytes);
    return value;
}

IMAPValue IMAPValue::list(std::vector<IMAPValue> items) {
    IMAPValue value;
    value.kind_ = Kind::list;
    value.items_ = std::move(items);
    return value;
}

IMAPValue IMAPValue::nil() {
    return IMAPValue();
}

IMAPValue::~IMAPValue() {
    // Lists of lists are taken apart with an explicit stack rather than by recursion, so that a
    // server's `((((…` can't overflow the call stack when the value is dropped.
    if (items_.empty()) {
        return;
    }
    std::vector<IMAPValue> pending = std::move(items_);
    while (!pending.empty()) {
        IMAPValue last = std::move(pending.back());
        pending.pop_back();
        for (auto& child : last.items_) {
            if (!child.items_.empty()) {
                pending.push_back(std::move(child));
            }
        }
        last.items_.clear();
    }
}

std::optional<std::string> IMAPValue::text() const {
    switch (kind_) {
    case Kind::atom:
        return bytes_;
    case Kind::string:
        if (Unicode::isValidUTF8(bytes_)) {
            return bytes_;
        }
        return latin1ToUTF8(bytes_);
    case Kind::list:
    case Kind::nil_:
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string_view> IMAPValue::data() const {
    switch (kind_) {
    case Kind::atom:
    case Kind::string:
        return std::string_view(bytes_);
    case Kind::list:
    case Kind::nil_:
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string> IMAPValue::takeData() {
    switch (kind_) {
    case Kind::atom:
    case Kind::string:
        return std::exchange(bytes_, std::string());
    case Kind::list:
    case Kind::nil_:
        return std::nullopt;
    }
    return std::nullopt;
}

std::ostream& operator<<(std::ostream& out, const IMAPValue& value) {
    switch (value.kind()) {
    case IMAPValue::Kind::atom:
        return out << *value.data();
    case IMAPValue::Kind::string: {
        std::string_view bytes = *value.data();
        out << '"';
        for (unsigned char byte : bytes.substr(0, printedStringLimit)) {
            if (byte == '"' || byte == '\\') {
                out << '\\' << char(byte);
            } else if (byte < 0x20 || byte >= 0x7F) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
                out << escaped;
            } else {
                out << char(byte);
            }
        }
        if (bytes.size() > printedStringLimit) {
            out << "…(" << bytes.size() << " bytes)";
        }
        return out << '"';
    }
    case IMAPValue::Kind::list: {
        out << '(';
        bool first = true;
        for (const auto& item : value.items()) {
            out << (first ? "" : " ") << item;
            first = false;
        }
        return out << ')';
    }
    case IMAPValue::Kind::nil_:
        return out << "NIL";
    }
    return out;
}

} // namespace qs
