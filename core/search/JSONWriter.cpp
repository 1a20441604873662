#include "search/JSONWriter.h"

#include "support/Unicode.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <unicode/utf8.h>

namespace qs {

namespace {

inline bool needsEscape(unsigned char c) {
    return c < 0x20 || c == '"' || c == '\\';
}

/// Whether `text` is ASCII with nothing to escape, eight bytes at a time: most of an index's
/// text is, and this spares the byte-by-byte passes.
bool isPlain(std::string_view text) {
    constexpr uint64_t ones = 0x0101010101010101ULL;
    constexpr uint64_t highs = 0x8080808080808080ULL;
    auto zeroByte = [](uint64_t v) {
        return (v - ones) & ~v & highs;
    };
    size_t i = 0;
    for (; i + 8 <= text.size(); i += 8) {
        uint64_t v = 0;
        std::memcpy(&v, text.data() + i, 8);
        // A high bit (not ASCII), a byte below 0x20, a quote or a backslash.
        uint64_t flagged = (v & highs) | ((v - 0x20 * ones) & highs) | zeroByte(v ^ ('"' * ones)) |
                           zeroByte(v ^ ('\\' * ones));
        if (flagged != 0) {
            return false;
        }
    }
    for (; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80 || needsEscape(c)) {
            return false;
        }
    }
    return true;
}

} // namespace

void JSONWriter::string(std::string_view text) {
    out_.push_back('"');
    if (isPlain(text)) {
        out_.append(text);
        out_.push_back('"');
        return;
    }
    bool ascii = true;
    for (unsigned char c : text) {
        ascii = ascii && c < 0x80;
    }
    if (ascii || Unicode::isValidUTF8(text)) {
        escaped(text);
    } else {
        std::string repaired;
        repaired.reserve(text.size() + 8);
        const auto* s = reinterpret_cast<const uint8_t*>(text.data());
        auto length = int32_t(text.size());
        for (int32_t i = 0; i < length;) {
            int32_t start = i;
            UChar32 c;
            U8_NEXT(s, i, length, c);
            if (c < 0) {
                repaired.append("\xEF\xBF\xBD");
            } else {
                repaired.append(text.substr(size_t(start), size_t(i - start)));
            }
        }
        escaped(repaired);
    }
    out_.push_back('"');
}

void JSONWriter::escaped(std::string_view text) {
    size_t runStart = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        if (!needsEscape(c)) {
            continue;
        }
        out_.append(text.substr(runStart, i - runStart));
        runStart = i + 1;
        switch (c) {
        case '"':
            out_.append("\\\"");
            break;
        case '\\':
            out_.append("\\\\");
            break;
        case '\n':
            out_.append("\\n");
            break;
        case '\r':
            out_.append("\\r");
            break;
        case '\t':
            out_.append("\\t");
            break;
        default: {
            static constexpr char hex[] = "0123456789abcdef";
            char buffer[6] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 15]};
            out_.append(buffer, 6);
        }
        }
    }
    out_.append(text.substr(runStart));
}

void JSONWriter::integer(int64_t value) {
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out_.append(buffer, result.ptr);
}

void JSONWriter::unsignedInteger(uint64_t value) {
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out_.append(buffer, result.ptr);
}

void JSONWriter::number(double value) {
    if (!std::isfinite(value)) {
        value = 0;
    }
    char buffer[32];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out_.append(buffer, result.ptr);
}

} // namespace qs
