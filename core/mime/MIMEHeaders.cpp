#include "mime/MIMEHeaders.h"

#include "mime/TextTrim.h"
#include "support/Unicode.h"

#include <array>

namespace qs {

namespace {

// Windows-1252 code points for 0x80-0x9F; 0 marks the five bytes the code page leaves
// undefined, which make a strict decode fail.
constexpr std::array<char16_t, 32> kWindows1252High = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

void appendUTF8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

std::optional<std::string> strictWindows1252(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 4);
    for (char ch : bytes) {
        auto b = static_cast<unsigned char>(ch);
        if (b < 0x80 || b >= 0xA0) {
            appendUTF8(out, b);
            continue;
        }
        char16_t mapped = kWindows1252High[b - 0x80];
        if (mapped == 0) {
            return std::nullopt;
        }
        appendUTF8(out, mapped);
    }
    return out;
}

// Header blocks are text in practice, but 8-bit bytes from old mailers turn up; the fallbacks
// keep every block readable rather than dropping it. Only called when the bytes aren't UTF-8.
std::string decodeNonUTF8(std::string_view bytes) {
    if (auto text = strictWindows1252(bytes)) {
        return std::move(*text);
    }
    return Unicode::toUTF8(Unicode::fromUTF8(bytes));
}

} // namespace

MIMEHeaders MIMEHeaders::parse(std::string_view bytes) {
    MIMEHeaders headers;
    if (bytes.empty()) {
        return headers;
    }
    std::string decoded;
    std::string_view text = bytes;
    if (!Unicode::isValidUTF8(bytes)) {
        decoded = decodeNonUTF8(bytes);
        text = decoded;
    }
    // The field being built is the last one in the list while `open` holds, so a
    // continuation line appends to it in place.
    bool open = false;

    std::string_view rest = text;
    while (!rest.empty()) {
        size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }

        if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            if (open) {
                auto& value = headers.fields.back().value;
                value += ' ';
                value += TextTrim::whitespace(line);
            }
            continue;
        }
        open = false;
        size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        std::string_view name = TextTrim::whitespace(line.substr(0, colon));
        if (name.empty() || name.find(' ') != std::string_view::npos) {
            continue;
        }
        headers.fields.push_back(
            {std::string(name), std::string(TextTrim::whitespace(line.substr(colon + 1)))});
        open = true;
    }
    return headers;
}

const std::string* MIMEHeaders::first(std::string_view name) const {
    for (const auto& field : fields) {
        if (TextTrim::equalsIgnoringCase(field.name, name)) {
            return &field.value;
        }
    }
    return nullptr;
}

std::optional<std::string> MIMEHeaders::operator[](std::string_view name) const {
    if (const std::string* value = first(name)) {
        return *value;
    }
    return std::nullopt;
}

std::vector<std::string> MIMEHeaders::all(std::string_view name) const {
    std::vector<std::string> values;
    for (const auto& field : fields) {
        if (TextTrim::equalsIgnoringCase(field.name, name)) {
            values.push_back(field.value);
        }
    }
    return values;
}

std::ostream& operator<<(std::ostream& out, const MIMEHeaderField& field) {
    return out << field.name << ": " << field.value;
}

std::ostream& operator<<(std::ostream& out, const MIMEHeaders& headers) {
    out << "{";
    for (size_t i = 0; i < headers.fields.size(); ++i) {
        out << (i ? "; " : "") << headers.fields[i];
    }
    return out << "}";
}

} // namespace qs
