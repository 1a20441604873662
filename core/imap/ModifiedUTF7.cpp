#include "imap/ModifiedUTF7.h"

#include <optional>
#include <vector>

namespace qs::ModifiedUTF7 {

namespace {

int base64Value(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    if (c == '+') {
        return 62;
    }
    if (c == '/') {
        return 63;
    }
    return -1;
}

// Strict base64: only the alphabet, a length that is a multiple of 4, padding only at the end.
std::optional<std::vector<unsigned char>> base64(const std::string& text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::vector<unsigned char> out;
    for (size_t i = 0; i < text.size(); i += 4) {
        int padding = 0;
        uint32_t group = 0;
        for (size_t j = 0; j < 4; ++j) {
            char c = text[i + j];
            if (c == '=') {
                if (i + 4 != text.size() || j < 2) {
                    return std::nullopt;
                }
                ++padding;
                group <<= 6;
                continue;
            }
            int value = base64Value(c);
            if (value < 0 || padding > 0) {
                return std::nullopt;
            }
            group = (group << 6) | static_cast<uint32_t>(value);
        }
        out.push_back(static_cast<unsigned char>(group >> 16));
        if (padding < 2) {
            out.push_back(static_cast<unsigned char>(group >> 8));
        }
        if (padding < 1) {
            out.push_back(static_cast<unsigned char>(group));
        }
    }
    return out;
}

void appendUTF8(std::string& out, uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// Big-endian UTF-16 to UTF-8; nothing for an odd length or an unpaired surrogate.
std::optional<std::string> utf16(const std::vector<unsigned char>& bytes) {
    if (bytes.size() % 2 != 0) {
        return std::nullopt;
    }
    std::string out;
    for (size_t i = 0; i < bytes.size(); i += 2) {
        uint32_t unit = (uint32_t(bytes[i]) << 8) | bytes[i + 1];
        if (unit >= 0xD800 && unit < 0xDC00) {
            if (i + 3 >= bytes.size()) {
                return std::nullopt;
            }
            uint32_t low = (uint32_t(bytes[i + 2]) << 8) | bytes[i + 3];
            if (low < 0xDC00 || low >= 0xE000) {
                return std::nullopt;
            }
            appendUTF8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
            i += 2;
        } else if (unit >= 0xDC00 && unit < 0xE000) {
            return std::nullopt;
        } else {
            appendUTF8(out, unit);
        }
    }
    return out;
}

} // namespace

std::string decode(std::string_view text) {
    std::string out;
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] != '&') {
            out += text[i++];
            continue;
        }
        size_t dash = text.find('-', i + 1);
        if (dash == std::string_view::npos) {
            out.append(text.substr(i));
            break;
        }
        if (dash == i + 1) {
            out += '&';
        } else {
            std::string encoded(text.substr(i + 1, dash - i - 1));
            for (char& c : encoded) {
                if (c == ',') {
                    c = '/';
                }
            }
            while (encoded.size() % 4 != 0) {
                encoded += '=';
            }
            std::optional<std::string> decoded;
            if (auto bytes = base64(encoded)) {
                decoded = utf16(*bytes);
            }
            out += decoded ? *decoded : std::string(text.substr(i, dash - i + 1));
        }
        i = dash + 1;
    }
    return out;
}

} // namespace qs::ModifiedUTF7
