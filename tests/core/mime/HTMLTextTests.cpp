#include "mime/HTMLText.h"

#include "mime/TextTrim.h"
#include "support/Regex.h"
#include "support/Unicode.h"

#include <gtest/gtest.h>

#include <vector>

using namespace qs;

TEST(HTMLText, DecodeEntitiesAndEscape) {
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"numeric", "&#x41;&#66;", "AB"},
        {"upper X stays", "&#X41;", "&#X41;"},
        {"surrogate vanishes", "&#xD800;", ""},
        {"too large vanishes", "&#x110000;", ""},
        {"huge vanishes", "&#99999999999999999999;", ""},
        {"hex digits without x vanish", "&#4a;", ""},
        {"astral", "&#x1F600;", "\xf0\x9f\x98\x80"},
        {"named any case", "&AMP; &Mdash; &hellip;", "& \xe2\x80\x94 \xe2\x80\xa6"},
        {"quotes", "&ldquo;&rdquo;&lsquo;&rsquo;&quot;&#39;&apos;",
         "\xe2\x80\x9c\xe2\x80\x9d\xe2\x80\x98\xe2\x80\x99\"''"},
        {"symbols", "&copy;&reg;&trade;&euro;&bull;&ndash;", "©®™€•–"},
        {"joiners vanish", "a&zwnj;b&zwj;c", "abc"},
        {"unknown entity kept", "&eacute; &", "&eacute; &"},
        {"no semicolon kept", "&amp", "&amp"},
    };
    for (const auto& [name, input, output] : rows) {
        EXPECT_EQ(HTMLText::decodeEntities(input), output) << name;
    }
    EXPECT_EQ(HTMLText::escape("<a href=\"x\">&amp;</a> it's"),
              "&lt;a href=&quot;x&quot;&gt;&amp;amp;&lt;/a&gt; it's");
}

namespace {

// The conversion written out as the literal sequence of regular expression replacements,
// as an oracle for the faster scans of the implementation.
std::string toPlainByRegularExpressions(std::string_view html) {
    using icu::UnicodeString;
    struct Step {
        Regex regex;
        UnicodeString replacement;
    };
    auto step = [](const char16_t* pattern, const char16_t* with, bool ignoreCase) {
        return Step{Regex(std::u16string_view(pattern), ignoreCase ? UREGEX_CASE_INSENSITIVE : 0),
                    UnicodeString(with)};
    };
    static const std::vector<Step> markup = [&] {
        std::vector<Step> steps;
        steps.push_back(step(u"<style[^>]*>[\\s\\S]*?</style\\s*>", u" ", true));
        steps.push_back(step(u"<script[^>]*>[\\s\\S]*?</script\\s*>", u" ", true));
        steps.push_back(step(u"<head[^>]*>[\\s\\S]*?</head\\s*>", u" ", true));
        steps.push_back(step(u"<title[^>]*>[\\s\\S]*?</title\\s*>", u" ", true));
        steps.push_back(step(u"<!--[\\s\\S]*?-->", u" ", false));
        steps.push_back(step(u"<(br|/p|/div|/tr|/li|/h[1-6])[^>]*>", u"\n", true));
        steps.push_back(step(u"<[^>]+>", u" ", false));
        return steps;
    }();
    static const std::vector<Step> blanks = [&] {
        std::vector<Step> steps;
        steps.push_back(step(u"[ \\t\\u00a0]+", u" ", false));
        steps.push_back(step(u"\\n\\s*\\n\\s*\\n+", u"\n\n", false));
        return steps;
    }();
    UnicodeString text = Unicode::fromUTF8(html);
    for (const auto& s : markup) {
        text = s.regex.replaceAll(text, s.replacement);
    }
    text = Unicode::fromUTF8(HTMLText::decodeEntities(Unicode::toUTF8(text)));
    for (const auto& s : blanks) {
        text = s.regex.replaceAll(text, s.replacement);
    }
    return std::string(TextTrim::whitespaceAndNewlines(Unicode::toUTF8(text)));
}

} // namespace

TEST(HTMLText, ToPlainAgreesWithTheRegularExpressions) {
    const std::vector<std::string_view> pieces{
        "<",     ">",    "/",        "br",    "BR",       "p",     "/P",     "div",    "/Div",
        "/tr",   "/li",  "/h3",      "/h7",   "h1",       "style", "STYLE",  "script", "head",
        "title", "<!--", "-->",      "&amp;", "&#65;",    "&#x;",  "&nbsp;", " ",      "\t",
        "\n",    "\r\n", "\xc2\xa0", "x",     "=\"a>b\"", "é",     "</",     "<>",     "!",
    };
    uint32_t state = 7;
    for (int round = 0; round < 3000; ++round) {
        std::string html;
        int count = 1 + int(state % 40);
        for (int k = 0; k < count; ++k) {
            state = state * 1103515245 + 12345;
            html += pieces[(state >> 16) % pieces.size()];
        }
        ASSERT_EQ(HTMLText::toPlain(html), toPlainByRegularExpressions(html)) << html;
    }
}
