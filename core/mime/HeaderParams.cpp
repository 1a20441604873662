#include "mime/HeaderParams.h"

#include "mime/Charsets.h"
#include "mime/PercentDecode.h"
#include "mime/TextTrim.h"

#include <algorithm>
#include <vector>

namespace qs::HeaderParams {

namespace {

// Cuts at semicolons outside double quotes. Quotes stay in the pieces; a backslash inside
// quotes is dropped and escapes the next character. The last piece is kept even if empty.
std::vector<std::string> pieces(std::string_view text) {
    std::vector<std::string> out;
    std::string piece;
    bool inQuotes = false;
    bool escaped = false;
    for (char c : text) {
        if (escaped) {
            piece.push_back(c);
            escaped = false;
        } else if (c == '\\' && inQuotes) {
            escaped = true;
        } else if (c == '"') {
            inQuotes = !inQuotes;
            piece.push_back(c);
        } else if (c == ';' && !inQuotes) {
            out.push_back(std::move(piece));
            piece.clear();
        } else {
            piece.push_back(c);
        }
    }
    out.push_back(std::move(piece));
    return out;
}

// A decimal section number ("0", "12"), or nothing.
std::optional<long> sectionNumber(std::string_view text) {
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    // More digits than this are no section number a sender meant.
    constexpr size_t maxDigits = 9;
    if (text.empty() || text.size() > maxDigits) {
        return std::nullopt;
    }
    long value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        value = value * 10 + (c - '0');
    }
    return negative ? -value : value;
}

struct Section {
    long number;
    std::string text;
    bool extended;
};

std::string_view charsetOrUTF8(const std::optional<std::string>& charset) {
    return charset ? std::string_view(*charset) : std::string_view("utf-8");
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Parsed& parsed) {
    out << "Parsed{value: \"" << parsed.value << "\", params: {";
    const char* separator = "";
    for (const auto& [name, value] : parsed.params) {
        out << separator << name << ": \"" << value << "\"";
        separator = ", ";
    }
    return out << "}}";
}

Extended decode2231Bytes(std::string_view text, bool first) {
    if (first) {
        auto quote1 = text.find('\'');
        auto quote2 = quote1 == std::string_view::npos ? quote1 : text.find('\'', quote1 + 1);
        bool exactlyTwo = quote2 != std::string_view::npos &&
                          text.find('\'', quote2 + 1) == std::string_view::npos;
        if (exactlyTwo) {
            Extended out;
            auto charset = text.substr(0, quote1);
            if (!charset.empty()) {
                out.charset = std::string(charset);
            }
            out.bytes = PercentDecode::bytes(text.substr(quote2 + 1));
            return out;
        }
    }
    return Extended{PercentDecode::bytes(text), std::nullopt};
}

Parsed parse(std::string_view text) {
    auto parts = pieces(text);
    Parsed parsed;
    parsed.value = std::string(TextTrim::whitespaceAndNewlines(parts.front()));

    // Sections by base name, in header order until sorted.
    std::map<std::string, std::vector<Section>> sectioned;
    for (size_t i = 1; i < parts.size(); ++i) {
        std::string_view piece = parts[i];
        auto equals = piece.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        std::string name =
            TextTrim::asciiLower(TextTrim::whitespaceAndNewlines(piece.substr(0, equals)));
        std::string_view value = TextTrim::whitespaceAndNewlines(piece.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        bool extended = false;
        if (!name.empty() && name.back() == '*') {
            name.pop_back();
            extended = true;
        }
        auto star = name.find('*');
        if (star != std::string::npos) {
            if (auto number = sectionNumber(std::string_view(name).substr(star + 1))) {
                sectioned[name.substr(0, star)].push_back(
                    Section{*number, std::string(value), extended});
                continue;
            }
        }
        if (extended) {
            auto decoded = decode2231Bytes(value, true);
            parsed.params[name] = Charsets::string(decoded.bytes, charsetOrUTF8(decoded.charset));
        } else {
            parsed.params[name] = std::string(value);
        }
    }

    for (auto& [name, sections] : sectioned) {
        std::stable_sort(sections.begin(), sections.end(),
                         [](const Section& a, const Section& b) { return a.number < b.number; });
        std::string bytes;
        std::optional<std::string> charset;
        bool first = true;
        for (const auto& section : sections) {
            if (section.extended) {
                auto decoded = decode2231Bytes(section.text, first);
                bytes += decoded.bytes;
                if (decoded.charset) {
                    charset = std::move(decoded.charset);
                }
            } else {
                bytes += section.text;
            }
            first = false;
        }
        parsed.params[name] = Charsets::string(bytes, charsetOrUTF8(charset));
    }
    return parsed;
}

} // namespace qs::HeaderParams
