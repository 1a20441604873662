#include "safety/TextUtil.h"

#include "support/Unicode.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace qs::TextUtil {

std::string_view trimWhitespace(std::string_view text) {
    // Most text to trim starts and ends with a visible ASCII character: nothing to look up.
    auto visibleASCII = [](char c) {
        return c > ' ' && c < 0x7F;
    };
    if (text.empty() || (visibleASCII(text.front()) && visibleASCII(text.back()))) {
        return text;
    }
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    auto length = int32_t(text.size());
    int32_t start = 0;
    while (start < length) {
        int32_t next = start;
        UChar32 c;
        U8_NEXT(s, next, length, c);
        if (c < 0 || !u_isUWhiteSpace(c)) {
            break;
        }
        start = next;
    }
    int32_t end = length;
    while (end > start) {
        int32_t previous = end;
        UChar32 c;
        U8_PREV(s, start, previous, c);
        if (c < 0 || !u_isUWhiteSpace(c)) {
            break;
        }
        end = previous;
    }
    return text.substr(size_t(start), size_t(end - start));
}

bool isAllLetters(std::string_view text) {
    if (text.empty()) {
        return false;
    }
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    int32_t i = 0;
    auto length = int32_t(text.size());
    while (i < length) {
        if (s[i] < 0x80) { // the only ASCII letters are A-Z and a-z
            if (!((s[i] >= 'a' && s[i] <= 'z') || (s[i] >= 'A' && s[i] <= 'Z'))) {
                return false;
            }
            ++i;
            continue;
        }
        UChar32 c;
        U8_NEXT(s, i, length, c);
        if (c < 0 || !u_isalpha(c)) {
            return false;
        }
    }
    return true;
}

bool isASCII(std::string_view text) {
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            return false;
        }
    }
    return true;
}

void lowerASCIIInPlace(std::string& text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = char(c - 'A' + 'a');
        }
    }
}

std::string lower(std::string_view text) {
    if (isASCII(text)) {
        std::string out(text);
        lowerASCIIInPlace(out);
        return out;
    }
    icu::UnicodeString unicode = Unicode::fromUTF8(text);
    unicode.toLower(icu::Locale::getRoot());
    return Unicode::toUTF8(unicode);
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) {
        return false;
    }
    for (size_t i = 0; i < prefix.size(); ++i) {
        char a = text[i];
        char b = prefix[i];
        if (a >= 'A' && a <= 'Z') {
            a = char(a - 'A' + 'a');
        }
        if (b >= 'A' && b <= 'Z') {
            b = char(b - 'A' + 'a');
        }
        if (a != b) {
            return false;
        }
    }
    return true;
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    if (from.empty() || text.find(from) == std::string::npos) {
        return;
    }
    std::string out;
    out.reserve(text.size());
    size_t start = 0;
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, start)) {
        out.append(text, start, at - start);
        out.append(to);
        start = at + from.size();
    }
    out.append(text, start, std::string::npos);
    text = std::move(out);
}

} // namespace qs::TextUtil
