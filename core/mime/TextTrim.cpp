#include "mime/TextTrim.h"

#include <cstdint>

namespace qs::TextTrim {

namespace {

// Length of the blank character at the start of `text`, or 0 if it doesn't start with one.
size_t leadingBlank(std::string_view text, bool newlines) {
    if (text.empty()) {
        return 0;
    }
    auto b0 = uint8_t(text[0]);
    if (b0 == ' ' || b0 == '\t') {
        return 1;
    }
    if (b0 == '\n' || b0 == '\r' || b0 == '\v' || b0 == '\f') {
        return newlines ? 1 : 0;
    }
    if (b0 < 0x80 || text.size() < 2) {
        return 0;
    }
    auto b1 = uint8_t(text[1]);
    if (b0 == 0xC2) {
        if (b1 == 0xA0) {
            return 2;
        }
        return (newlines && b1 == 0x85) ? 2 : 0;
    }
    if (text.size() < 3) {
        return 0;
    }
    auto b2 = uint8_t(text[2]);
    if (b0 == 0xE1 && b1 == 0x9A && b2 == 0x80) { // U+1680
        return 3;
    }
    if (b0 == 0xE2 && b1 == 0x80) {
        if (b2 >= 0x80 && b2 <= 0x8A) { // U+2000..U+200A
            return 3;
        }
        if (b2 == 0xAF) { // U+202F
            return 3;
        }
        if (b2 == 0xA8 || b2 == 0xA9) { // U+2028, U+2029
            return newlines ? 3 : 0;
        }
        return 0;
    }
    if (b0 == 0xE2 && b1 == 0x81 && b2 == 0x9F) { // U+205F
        return 3;
    }
    if (b0 == 0xE3 && b1 == 0x80 && b2 == 0x80) { // U+3000
        return 3;
    }
    return 0;
}

// Length of the blank character at the end of `text`, or 0.
size_t trailingBlank(std::string_view text, bool newlines) {
    if (text.empty()) {
        return 0;
    }
    // A blank is one to three bytes long; try each start that could begin one.
    for (size_t length = 1; length <= 3 && length <= text.size(); ++length) {
        auto tail = text.substr(text.size() - length);
        if (length > 1 && (uint8_t(tail[0]) & 0xC0) == 0x80) {
            continue;
        }
        if (leadingBlank(tail, newlines) == length) {
            return length;
        }
        if ((uint8_t(tail[0]) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return 0;
}

std::string_view trim(std::string_view text, bool newlines) {
    while (size_t n = leadingBlank(text, newlines)) {
        text.remove_prefix(n);
    }
    while (size_t n = trailingBlank(text, newlines)) {
        text.remove_suffix(n);
    }
    return text;
}

} // namespace

std::string_view whitespace(std::string_view text) {
    return trim(text, false);
}

std::string_view whitespaceAndNewlines(std::string_view text) {
    return trim(text, true);
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = char(c - 'A' + 'a');
        }
    }
    return out;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i];
        char y = b[i];
        if (x >= 'A' && x <= 'Z') {
            x = char(x - 'A' + 'a');
        }
        if (y >= 'A' && y <= 'Z') {
            y = char(y - 'A' + 'a');
        }
        if (x != y) {
            return false;
        }
    }
    return true;
}

} // namespace qs::TextTrim
