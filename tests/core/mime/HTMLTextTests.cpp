#include "mime/HTMLText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qs;

namespace {

struct Row {
    const char* name;
    std::string input;
    std::string output;
};

} // namespace

TEST(HTMLText, ToPlain) {
    const std::vector<Row> rows{
        {"paragraphs", "<p>a</p><p>b</p>", "a\n b"},
        {"style removed", "<style>x</style>hello", "hello"},
        {"style with attributes and case", "<STYLE type=\"text/css\">p{}</Style >hello", "hello"},
        {"script, head and title", "<head><title>T</title></head><script>var a;</script>body",
         "body"},
        {"comment", "a<!-- hidden\n -->b", "a b"},
        {"line break", "a<br>b", "a\nb"},
        {"self-closing break", "a<BR/>b", "a\nb"},
        {"heading end", "<h1>T</h1>x", "T\nx"},
        {"other tags become a space", "a<span>b</span>c", "a b c"},
        {"entities", "Fish &amp; chips &lt;3", "Fish & chips <3"},
        {"non-breaking space collapses", "a&nbsp;&nbsp; b\u00a0c", "a b c"},
        {"many blank lines", "a<br><br><br><br><br><br>b", "a\n\nb"},
        {"trimmed", "  <div> x </div>  ", "x"},
        {"empty", "", ""},
        {"not HTML", "plain & simple", "plain & simple"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(HTMLText::toPlain(row.input), row.output);
    }
}

TEST(HTMLText, FiveBlankLinesCollapseToOne) {
    EXPECT_EQ(HTMLText::toPlain("a\n\n\n\n\n\nb"), "a\n\nb");
    EXPECT_EQ(HTMLText::toPlain("a\n \n\t\n\nb"), "a\n\nb");
}

TEST(HTMLText, DecodeEntities) {
    const std::vector<Row> rows{
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
        {"no ampersand", "plain", "plain"},
        {"text around references kept", "x&#65;y&#66;z", "xAyBz"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(HTMLText::decodeEntities(row.input), row.output);
    }
}

TEST(HTMLText, Escape) {
    EXPECT_EQ(HTMLText::escape("<a href=\"x\">&amp;</a>"),
              "&lt;a href=&quot;x&quot;&gt;&amp;amp;&lt;/a&gt;");
    EXPECT_EQ(HTMLText::escape("it's"), "it's");
    EXPECT_EQ(HTMLText::decodeEntities(HTMLText::escape("a<b>&\"c\"")), "a<b>&\"c\"");
}
