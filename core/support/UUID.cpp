#include "support/UUID.h"

#include <random>

namespace qs {

UUID UUID::random() {
    // One generator per thread, seeded from the system's entropy source.
    thread_local std::mt19937_64 engine{std::random_device{}()};
    UUID id;
    for (size_t i = 0; i < 16; i += 8) {
        auto value = engine();
        for (size_t j = 0; j < 8; ++j) {
            id.bytes_[i + j] = static_cast<std::uint8_t>(value >> (j * 8));
        }
    }
    id.bytes_[6] = static_cast<std::uint8_t>((id.bytes_[6] & 0x0F) | 0x40);
    id.bytes_[8] = static_cast<std::uint8_t>((id.bytes_[8] & 0x3F) | 0x80);
    return id;
}

std::optional<UUID> UUID::parse(std::string_view text) {
    if (text.size() != 36) {
        return std::nullopt;
    }
    UUID id;
    size_t byte = 0;
    for (size_t i = 0; i < 36;) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            ++i;
            continue;
        }
        auto nibble = [](char c) -> int {
            if (c >= '0' && c <= '9')
                return c - '0';
            if (c >= 'a' && c <= 'f')
                return c - 'a' + 10;
            if (c >= 'A' && c <= 'F')
                return c - 'A' + 10;
            return -1;
        };
        int high = nibble(text[i]);
        int low = nibble(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        id.bytes_[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return id;
}

std::string UUID::string() const {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            out.push_back('-');
        }
        out.push_back(hex[bytes_[i] >> 4]);
        out.push_back(hex[bytes_[i] & 0x0F]);
    }
    return out;
}

} // namespace qs
