#include "mime/HTMLText.h"

#include "mime/TextTrim.h"
#include "support/Regex.h"
#include "support/Unicode.h"

#include <array>
#include <unicode/utf16.h>
#include <utility>

namespace qs::HTMLText {

namespace {

using icu::UnicodeString;

// Only the tag names ignore case: with a literal `<` first, the engine can skip ahead to each
// `<` instead of trying every position.
const std::array<qs::Regex, 4>& hiddenElements() {
    static const std::array<qs::Regex, 4> regexes{
        qs::Regex(u"<(?i:style)[^>]*>[\\s\\S]*?</(?i:style)\\s*>"),
        qs::Regex(u"<(?i:script)[^>]*>[\\s\\S]*?</(?i:script)\\s*>"),
        qs::Regex(u"<(?i:head)[^>]*>[\\s\\S]*?</(?i:head)\\s*>"),
        qs::Regex(u"<(?i:title)[^>]*>[\\s\\S]*?</(?i:title)\\s*>"),
    };
    return regexes;
}

constexpr std::array<std::u16string_view, 4> hiddenElementOpenings{u"<style", u"<script", u"<head",
                                                                   u"<title"};

const qs::Regex& comments() {
    static const qs::Regex regex(u"<!--[\\s\\S]*?-->");
    return regex;
}

// Two of the steps are plain scans rather than regular expressions: they run at every `<` of
// the text, where the engine is several times slower, and their grammar is fixed.

UChar asciiLower(UChar c) {
    return c >= u'A' && c <= u'Z' ? UChar(c - u'A' + u'a') : c;
}

// Length of the name of a line-breaking tag at `chars` (just after `<`): `br`, `/p`, `/div`,
// `/tr`, `/li` or `/h1` to `/h6`, any case; 0 if none.
int32_t lineBreakingName(const UChar* chars, int32_t available) {
    auto is = [&](std::u16string_view name) {
        if (available < int32_t(name.size())) {
            return false;
        }
        for (size_t k = 0; k < name.size(); ++k) {
            if (asciiLower(chars[k]) != name[k]) {
                return false;
            }
        }
        return true;
    };
    for (std::u16string_view name : {u"br", u"/p", u"/div", u"/tr", u"/li"}) {
        if (is(name)) {
            return int32_t(name.size());
        }
    }
    if (is(u"/h") && available >= 3 && chars[2] >= u'1' && chars[2] <= u'6') {
        return 3;
    }
    return 0;
}

// Every match of `<(br|/p|/div|/tr|/li|/h[1-6])[^>]*>` (names in any case) replaced by a line
// feed when `lineBreaks`, otherwise every match of `<[^>]+>` replaced by a space.
UnicodeString replaceTags(const UnicodeString& text, bool lineBreaks) {
    const UChar* chars = text.getBuffer();
    const int32_t length = text.length();
    UnicodeString out;
    int32_t copied = 0;
    bool replaced = false;
    int32_t nextClose = -1; // the first `>` at or after the current tag name
    for (int32_t i = 0; i < length; ++i) {
        if (chars[i] != u'<') {
            continue;
        }
        int32_t after = i + 1;
        if (lineBreaks) {
            int32_t name = lineBreakingName(chars + after, length - after);
            if (name == 0) {
                continue;
            }
            after += name;
        } else if (after >= length || chars[after] == u'>') {
            continue; // `<>` is no tag
        }
        if (nextClose < after) {
            nextClose = after;
            while (nextClose < length && chars[nextClose] != u'>') {
                ++nextClose;
            }
        }
        if (nextClose >= length) {
            break; // no `>` anywhere after: no more tags
        }
        out.append(text, copied, i - copied);
        out.append(lineBreaks ? UChar(u'\n') : UChar(u' '));
        replaced = true;
        copied = nextClose + 1;
        i = nextClose;
    }
    if (!replaced) {
        return text;
    }
    out.append(text, copied, length - copied);
    return out;
}

const qs::Regex& emptyLineRuns() {
    static const qs::Regex regex(u"\\n\\s*\\n\\s*\\n+");
    return regex;
}

// True when `text` holds `needle` (lower-case ASCII) ignoring case; a cheap test that spares
// a regular expression pass over text that can't match.
bool containsIgnoringCase(const UnicodeString& text, std::u16string_view needle) {
    const UChar* chars = text.getBuffer();
    int32_t length = text.length();
    auto size = int32_t(needle.size());
    for (int32_t i = 0; i + size <= length; ++i) {
        if (chars[i] != needle[0]) {
            continue;
        }
        int32_t k = 1;
        for (; k < size; ++k) {
            UChar c = chars[i + k];
            if (c >= u'A' && c <= u'Z') {
                c = UChar(c - u'A' + u'a');
            }
            if (c != needle[size_t(k)]) {
                break;
            }
        }
        if (k == size) {
            return true;
        }
    }
    return false;
}

// Runs of spaces, tabs and no-break spaces become one space.
UnicodeString collapseBlanks(const UnicodeString& text) {
    UnicodeString out;
    const UChar* chars = text.getBuffer();
    int32_t length = text.length();
    UChar* buffer = out.getBuffer(length);
    int32_t written = 0;
    bool inRun = false;
    for (int32_t i = 0; i < length; ++i) {
        UChar c = chars[i];
        bool blank = c == u' ' || c == u'\t' || c == 0x00A0;
        if (blank && inRun) {
            continue;
        }
        buffer[written++] = blank ? u' ' : c;
        inRun = blank;
    }
    out.releaseBuffer(written);
    return out;
}

struct Entity {
    std::string_view name; // between `&` and `;`, lower case
    std::string_view text;
};

constexpr std::array<Entity, 21> namedEntities{{
    {"nbsp", " "},       {"amp", "&"},         {"lt", "<"},         {"gt", ">"},
    {"quot", "\""},      {"#39", "'"},         {"apos", "'"},       {"mdash", "\u2014"},
    {"ndash", "\u2013"}, {"hellip", "\u2026"}, {"rsquo", "\u2019"}, {"lsquo", "\u2018"},
    {"rdquo", "\u201D"}, {"ldquo", "\u201C"},  {"copy", "\u00A9"},  {"reg", "\u00AE"},
    {"trade", "\u2122"}, {"zwnj", ""},         {"zwj", ""},         {"euro", "\u20AC"},
    {"bull", "\u2022"},
}};

// The longest entity name above, so a scan never looks further than that past an `&`.
constexpr size_t longestEntityName = 6;

// One pass over the text: every named entity of the table replaced, ignoring case.
std::string replaceNamedEntities(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        size_t amp = text.find('&', i);
        if (amp == std::string_view::npos) {
            out.append(text.substr(i));
            break;
        }
        out.append(text.substr(i, amp - i));
        size_t semicolon = text.substr(amp + 1, longestEntityName + 1).find(';');
        const Entity* match = nullptr;
        if (semicolon != std::string_view::npos) {
            auto name = text.substr(amp + 1, semicolon);
            for (const auto& entity : namedEntities) {
                if (TextTrim::equalsIgnoringCase(entity.name, name)) {
                    match = &entity;
                    break;
                }
            }
        }
        if (match != nullptr) {
            out.append(match->text);
            i = amp + 1 + match->name.size() + 1;
        } else {
            out.push_back('&');
            i = amp + 1;
        }
    }
    return out;
}

// The code point of a numeric reference's digits, or -1 when they name no Unicode scalar
// value (including hexadecimal digits read as decimal).
int32_t referencedScalar(std::string_view digits, bool hex) {
    constexpr int64_t maxScalar = 0x10FFFF;
    int base = hex ? 16 : 10;
    int64_t value = 0;
    for (char c : digits) {
        int digit = c >= '0' && c <= '9'   ? c - '0'
                    : c >= 'a' && c <= 'f' ? c - 'a' + 10
                    : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                           : 99;
        if (digit >= base) {
            return -1;
        }
        value = value * base + digit;
        if (value > maxScalar) {
            return -1;
        }
    }
    if (value >= 0xD800 && value <= 0xDFFF) {
        return -1;
    }
    return int32_t(value);
}

void appendUTF8(std::string& out, int32_t c) {
    if (c < 0x80) {
        out.push_back(char(c));
    } else if (c < 0x800) {
        out.push_back(char(0xC0 | (c >> 6)));
        out.push_back(char(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(char(0xE0 | (c >> 12)));
        out.push_back(char(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(char(0x80 | (c & 0x3F)));
    } else {
        out.push_back(char(0xF0 | (c >> 18)));
        out.push_back(char(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(char(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(char(0x80 | (c & 0x3F)));
    }
}

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Every match of `&#(x?)([0-9a-fA-F]+);` replaced by the character it names, or deleted if it
// names none. A plain scan for that fixed grammar: it spares two conversions of the whole text.
std::string replaceNumericReferences(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        size_t amp = text.find("&#", i);
        if (amp == std::string_view::npos) {
            out.append(text.substr(i));
            break;
        }
        out.append(text.substr(i, amp - i));
        size_t digitsStart = amp + 2;
        bool hex = digitsStart < text.size() && text[digitsStart] == 'x';
        if (hex) {
            ++digitsStart;
        }
        size_t digitsEnd = digitsStart;
        while (digitsEnd < text.size() && isHexDigit(text[digitsEnd])) {
            ++digitsEnd;
        }
        if (digitsEnd == digitsStart || digitsEnd >= text.size() || text[digitsEnd] != ';') {
            out.append("&#");
            i = amp + 2;
            continue;
        }
        int32_t scalar = referencedScalar(text.substr(digitsStart, digitsEnd - digitsStart), hex);
        if (scalar >= 0) {
            appendUTF8(out, scalar);
        }
        i = digitsEnd + 1;
    }
    return out;
}

} // namespace

std::string decodeEntities(std::string_view text) {
    if (text.find('&') == std::string_view::npos) {
        return std::string(text);
    }
    std::string named = replaceNamedEntities(text);
    if (named.find("&#") == std::string::npos) {
        return named;
    }
    return replaceNumericReferences(named);
}

std::string toPlain(std::string_view html) {
    UnicodeString text = Unicode::fromUTF8(html);
    const UnicodeString space(u" ");
    for (size_t i = 0; i < hiddenElements().size(); ++i) {
        if (containsIgnoringCase(text, hiddenElementOpenings[i])) {
            text = hiddenElements()[i].replaceAll(text, space);
        }
    }
    if (text.indexOf(u"<!--", 4, 0) >= 0) {
        text = comments().replaceAll(text, space);
    }
    text = replaceTags(text, true);
    text = replaceTags(text, false);
    text = Unicode::fromUTF8(decodeEntities(Unicode::toUTF8(text)));
    text = collapseBlanks(text);
    text = emptyLineRuns().replaceAll(text, UnicodeString(u"\n\n"));
    return std::string(TextTrim::whitespaceAndNewlines(Unicode::toUTF8(text)));
}

std::string escape(std::string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    for (char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out.push_back(c);
        }
    }
    return out;
}

} // namespace qs::HTMLText
