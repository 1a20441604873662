#include "mime/TransferDecoding.h"

#include <array>
#include <cstdint>

namespace qs::TransferDecoding {

namespace {

constexpr uint8_t notBase64 = 0xFF;

constexpr std::array<uint8_t, 256> makeBase64Table() {
    std::array<uint8_t, 256> table{};
    for (auto& v : table) {
        v = notBase64;
    }
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (size_t i = 0; i < alphabet.size(); ++i) {
        table[uint8_t(alphabet[i])] = uint8_t(i);
    }
    return table;
}

constexpr std::array<uint8_t, 256> base64Table = makeBase64Table();

} // namespace

std::string decode(std::string_view bytes, std::string_view encoding) {
    if (encoding == "base64") {
        return base64(bytes);
    }
    if (encoding == "quoted-printable") {
        return quotedPrintable(bytes);
    }
    return std::string(bytes);
}

std::string base64(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() / 4 * 3 + 3);
    uint32_t accumulator = 0;
    int held = 0; // sextets in the accumulator
    for (char c : bytes) {
        uint8_t value = base64Table[uint8_t(c)];
        if (value == notBase64) {
            continue;
        }
        accumulator = (accumulator << 6) | value;
        if (++held == 4) {
            out.push_back(char((accumulator >> 16) & 0xFF));
            out.push_back(char((accumulator >> 8) & 0xFF));
            out.push_back(char(accumulator & 0xFF));
            accumulator = 0;
            held = 0;
        }
    }
    // A short last group decodes as if padded; a single leftover sextet carries no whole byte.
    if (held == 2) {
        out.push_back(char((accumulator >> 4) & 0xFF));
    } else if (held == 3) {
        out.push_back(char((accumulator >> 10) & 0xFF));
        out.push_back(char((accumulator >> 2) & 0xFF));
    }
    return out;
}

std::string quotedPrintable(std::string_view bytes, bool /*header*/) {
    std::string out;
    out.reserve(bytes.size());
    const size_t n = bytes.size();
    size_t i = 0;
    while (i < n) {
        char c = bytes[i];
        if (c != '=') {
            out.push_back(c);
            ++i;
            continue;
        }
        if (i + 2 < n) {
            int high = hexValue(bytes[i + 1]);
            int low = hexValue(bytes[i + 2]);
            if (high >= 0 && low >= 0) {
                out.push_back(char((high << 4) | low));
                i += 3;
                continue;
            }
        }
        // Not an escape: perhaps a soft line break, possibly with blanks before the line end.
        size_t j = i + 1;
        while (j < n && (bytes[j] == ' ' || bytes[j] == '\t')) {
            ++j;
        }
        if (j == n) {
            break;
        }
        if (bytes[j] == '\r') {
            ++j;
            if (j == n) {
                break;
            }
        }
        if (bytes[j] == '\n') {
            i = j + 1;
            continue;
        }
        out.push_back('=');
        ++i;
    }
    return out;
}

} // namespace qs::TransferDecoding
