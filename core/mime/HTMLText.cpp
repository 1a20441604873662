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

constexpr uint32_t ignoreCase = UREGEX_CASE_INSENSITIVE;

// Elements whose content is never text a reader sees.
const std::array<qs::Regex, 4>& hiddenElements() {
    static const std::array<qs::Regex, 4> regexes{
        qs::Regex(u"<style[^>]*>[\\s\\S]*?</style\\s*>", ignoreCase),
        qs::Regex(u"<script[^>]*>[\\s\\S]*?</script\\s*>", ignoreCase),
        qs::Regex(u"<head[^>]*>[\\s\\S]*?</head\\s*>", ignoreCase),
        qs::Regex(u"<title[^>]*>[\\s\\S]*?</title\\s*>", ignoreCase),
    };
    return regexes;
}

const qs::Regex& comments() {
    static const qs::Regex regex(u"<!--[\\s\\S]*?-->");
    return regex;
}

const qs::Regex& lineBreakingTags() {
    static const qs::Regex regex(u"<(br|/p|/div|/tr|/li|/h[1-6])[^>]*>", ignoreCase);
    return regex;
}

const qs::Regex& anyTag() {
    static const qs::Regex regex(u"<[^>]+>");
    return regex;
}

const qs::Regex& blankRuns() {
    static const qs::Regex regex(u"[ \\t\\u00a0]+");
    return regex;
}

const qs::Regex& emptyLineRuns() {
    static const qs::Regex regex(u"\\n\\s*\\n\\s*\\n+");
    return regex;
}

const qs::Regex& numericReferences() {
    static const qs::Regex regex(u"&#(x?)([0-9a-fA-F]+);");
    return regex;
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

// The code point a numeric reference names, or -1 when it names none.
UChar32 referencedScalar(const UnicodeString& digits, bool hex) {
    constexpr UChar32 maxScalar = 0x10FFFF;
    int base = hex ? 16 : 10;
    int64_t value = 0;
    for (int32_t i = 0; i < digits.length(); ++i) {
        UChar c = digits[i];
        int digit = c >= u'0' && c <= u'9'   ? c - u'0'
                    : c >= u'a' && c <= u'f' ? c - u'a' + 10
                    : c >= u'A' && c <= u'F' ? c - u'A' + 10
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
    return UChar32(value);
}

UnicodeString replaceNumericReferences(const UnicodeString& text) {
    auto matcher = numericReferences().matcher(text);
    UnicodeString out;
    int32_t last = 0;
    UErrorCode status = U_ZERO_ERROR;
    while (matcher->find(status) && U_SUCCESS(status)) {
        int32_t start = matcher->start(status);
        int32_t end = matcher->end(status);
        out.append(text, last, start - last);
        bool hex = matcher->group(1, status).length() > 0;
        UChar32 scalar = referencedScalar(matcher->group(2, status), hex);
        if (scalar >= 0) {
            out.append(scalar);
        }
        last = end;
    }
    out.append(text, last, text.length() - last);
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
    return Unicode::toUTF8(replaceNumericReferences(Unicode::fromUTF8(named)));
}

std::string toPlain(std::string_view html) {
    UnicodeString text = Unicode::fromUTF8(html);
    const UnicodeString space(u" ");
    const UnicodeString lineFeed(u"\n");
    for (const auto& element : hiddenElements()) {
        text = element.replaceAll(text, space);
    }
    text = comments().replaceAll(text, space);
    text = lineBreakingTags().replaceAll(text, lineFeed);
    text = anyTag().replaceAll(text, space);
    text = Unicode::fromUTF8(decodeEntities(Unicode::toUTF8(text)));
    text = blankRuns().replaceAll(text, space);
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
