#include "safety/HTMLScanner.h"

#include "mime/MIMEParser.h"
#include "safety/HTMLPatterns.h"
#include "support/Corpus.h"
#include "support/Unicode.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace qs {
namespace {

// The matches of an ICU pattern, as UTF-8 text: group 0, or the listed groups.
std::vector<std::string> regexMatches(const Regex& regex, std::string_view text,
                                      std::vector<int> groups) {
    icu::UnicodeString unicode = Unicode::fromUTF8(text);
    auto matcher = regex.matcher(unicode);
    std::vector<std::string> out;
    UErrorCode status = U_ZERO_ERROR;
    while (matcher->find(status) && U_SUCCESS(status)) {
        for (int group : groups) {
            out.push_back(Unicode::toUTF8(matcher->group(group, status)));
        }
    }
    return out;
}

// The scanner's matches in the same shape, passed through the same UTF-8 repair as above.
std::vector<std::string> scannedImages(std::string_view html) {
    std::vector<std::string> out;
    for (std::string_view tag : HTMLScanner::imgTags(html)) {
        out.push_back(Unicode::toUTF8(Unicode::fromUTF8(tag)));
    }
    return out;
}

std::vector<std::string> scannedAnchors(std::string_view html) {
    std::vector<std::string> out;
    for (const HTMLScanner::Anchor& anchor : HTMLScanner::anchors(html)) {
        for (std::string_view part : {anchor.whole, anchor.attributes, anchor.content}) {
            out.push_back(Unicode::toUTF8(Unicode::fromUTF8(part)));
        }
    }
    return out;
}

std::vector<std::string> scannedAttributes(std::string_view tag) {
    std::vector<std::string> out;
    for (const HTMLScanner::Attribute& attribute : HTMLScanner::attributes(tag)) {
        for (std::string_view part : {attribute.whole, attribute.name, attribute.value}) {
            out.push_back(Unicode::toUTF8(Unicode::fromUTF8(part)));
        }
    }
    return out;
}

void expectSameAttributes(std::string_view tag, const std::string& label) {
    EXPECT_EQ(scannedAttributes(tag), regexMatches(HTMLPatterns::attrRegex(), tag, {0, 1, 2}))
        << label << ": " << tag;
}

void expectSameAsPatterns(std::string_view html, const std::string& label) {
    EXPECT_EQ(scannedImages(html), regexMatches(HTMLPatterns::imgRegex(), html, {0})) << label;
    // The walk that finds both at once finds the same as each alone (whose results are views
    // of the same text, so they compare exactly).
    HTMLScanner::Tags tags = HTMLScanner::tags(html);
    EXPECT_EQ(tags.images, HTMLScanner::imgTags(html)) << label;
    auto sameAnchor = [](const HTMLScanner::Anchor& a, const HTMLScanner::Anchor& b) {
        return a.whole.data() == b.whole.data() && a.whole.size() == b.whole.size() &&
               a.attributes.size() == b.attributes.size() && a.content.size() == b.content.size();
    };
    auto anchors = HTMLScanner::anchors(html);
    EXPECT_TRUE(std::equal(tags.anchors.begin(), tags.anchors.end(), anchors.begin(), anchors.end(),
                           sameAnchor))
        << label;
    EXPECT_EQ(scannedAnchors(html), regexMatches(HTMLPatterns::anchorRegex(), html, {0, 1, 2}))
        << label;
    for (std::string_view tag : HTMLScanner::imgTags(html)) {
        expectSameAttributes(tag, label);
    }
    for (const HTMLScanner::Anchor& anchor : HTMLScanner::anchors(html)) {
        expectSameAttributes(anchor.attributes, label);
    }
}

TEST(HTMLScannerTest, AgreesWithThePatternsOnAwkwardInput) {
    // What the random pass below never generates: other blanks and bytes, and nested links.
    const char* cases[] = {"<IMG SRC=x><imgx src=1><img/src=2><img\tsrc=3>",
                           "<img\xcc\x81 src=combining><img\xc3\xa9><img\xe2\x80\x8b>",
                           "<a href=x>one <a href=y>two</a> three</a><a\nhref=y>3</a\t\n>",
                           "<a href=x>text</a\xe3\x80\x80><a>t</a\v><a>u</a\xc2\x85>",
                           "x<a\xff>bad byte</a><head><HEAD x=1>"};
    for (const char* html : cases) {
        expectSameAsPatterns(html, html);
    }
}

TEST(HTMLScannerTest, AttributesAgreeWithThePattern) {
    // What the random pass below never generates.
    const char* cases[] = {"<img src=\"unclosed width=1>",
                           "<img data-x-y=1 -=2 =3 a==4 b=\"\" c=''>",
                           "<img x=\"a\nb\" y=a\xff"
                           "b>",
                           "<img src=http://x/y?a=1&amp;b=2>",
                           "<img src=a\vb c=d\xc2\x85"
                           "e f=\x1c"
                           "g>",
                           "name1name2=v"};
    for (const char* tag : cases) {
        expectSameAttributes(tag, "case");
    }
    const std::vector<std::string> pieces = {
        "a",  "B",  "-",       "=", " ",  "\t",       "\n",
        "\"", "'",  ">",       "<", "x1", "\xc2\xa0", "\xe2\x80\x83",
        "é",  "\v", "\xc2\x85"};
    std::mt19937 random(7);
    for (int round = 0; round < 5000; ++round) {
        std::string tag;
        int length = int(random() % 16);
        for (int i = 0; i < length; ++i) {
            tag += pieces[random() % pieces.size()];
        }
        expectSameAttributes(tag, "random");
    }
}

TEST(HTMLScannerTest, AgreesWithThePatternsOnRandomMarkup) {
    const std::vector<std::string> pieces = {
        "<a",         "<A", "<img", "<IMG",     ">", "</a", "</A",   "</a>",  " ", "\n", "x",
        "href=\"h\"", "<",  "/",    "\xc2\xa0", "é", "b",   "<abbr", "<imgs", "'", "\""};
    std::mt19937 random(20261122);
    for (int round = 0; round < 3000; ++round) {
        std::string html;
        int length = int(random() % 30);
        for (int i = 0; i < length; ++i) {
            html += pieces[random() % pieces.size()];
        }
        expectSameAsPatterns(html, html);
    }
}

TEST(HTMLScannerTest, AgreesWithThePatternsOnTheCorpus) {
    size_t htmlBodies = 0;
    for (const test::CorpusMessage& message : test::corpusMessages()) {
        ParsedMessage parsed = MIMEParser::parse(message.bytes);
        if (!parsed.htmlBody) {
            continue;
        }
        ++htmlBodies;
        expectSameAsPatterns(*parsed.htmlBody, message.name);
    }
    EXPECT_GT(htmlBodies, 150u);
}

// Group 1 of the first match of the pattern, or nothing.
std::optional<std::string> patternDomain(std::string_view text) {
    auto groups = regexMatches(HTMLPatterns::domainInText(), text, {1});
    if (groups.empty()) {
        return std::nullopt;
    }
    return groups.front();
}

std::optional<std::string> scannedDomain(std::string_view text) {
    if (auto domain = HTMLScanner::domainInASCIIText(text)) {
        return std::string(*domain);
    }
    return std::nullopt;
}

TEST(HTMLScannerTest, DomainInTextAgreesWithThePattern) {
    const char* cases[] = {"Visit WWW.Shop.Example.COM/deals today",
                           "https://www.bank.example/login",
                           "hhttp://a.com 1.9http://a.com",
                           "http://1.2.3.4 then b.cd",
                           "www.shop.example.c0m",
                           "report.pdf",
                           "x.abcdefghijklmnopqrstuvwxyzabcdef",
                           "under_score.com",
                           "1.9http://-:1.9http://-: a.bc"};
    for (const char* text : cases) {
        EXPECT_EQ(scannedDomain(text), patternDomain(text)) << text;
    }
    const std::vector<std::string> pieces = {"h",     "H",       "t",
                                             "T",     "p",       "s",
                                             ":",     "/",       ".",
                                             ".",     "a",       "bc",
                                             "Z",     "0",       "-",
                                             " ",     "_",       "com",
                                             "co.uk", "http://", "HTTPS://",
                                             "x.",    "ab.",     "\n",
                                             "#",     "?",       "abcdefghijklmnopqrstuvwxyzab"};
    std::mt19937 random(41);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        int length = int(random() % 14);
        for (int i = 0; i < length; ++i) {
            text += pieces[random() % pieces.size()];
        }
        EXPECT_EQ(scannedDomain(text), patternDomain(text)) << text;
    }
}

TEST(HTMLScannerTest, DomainInTextStaysLinear) {
    // Dotted runs that never end in two letters, and schemes that lead nowhere: each start
    // would rescan the rest in a naive search.
    std::string text;
    for (int i = 0; i < 100'000; ++i) {
        text += "1.9http://-:";
    }
    EXPECT_EQ(HTMLScanner::domainInASCIIText(text), std::nullopt);
    text += " a.bc";
    EXPECT_EQ(HTMLScanner::domainInASCIIText(text), "a.bc");
}

TEST(HTMLScannerTest, HeadTag) {
    EXPECT_EQ(HTMLScanner::endOfHeadTag("<html><Head class=x><title>"), 20u);
    EXPECT_EQ(HTMLScanner::endOfHeadTag("<header>"), 8u); // the pattern has no word boundary
    EXPECT_EQ(HTMLScanner::endOfHeadTag("<p>no head</p>"), std::nullopt);
    EXPECT_EQ(HTMLScanner::endOfHeadTag("<head"), std::nullopt);
}

TEST(HTMLScannerTest, UnclosedLinksStayLinear) {
    // Each of these would make a backtracking search rescan the rest of the text.
    std::string html;
    for (int i = 0; i < 200'000; ++i) {
        html += "<a href=x>";
    }
    EXPECT_TRUE(HTMLScanner::anchors(html).empty());
    html += "</a>";
    auto anchors = HTMLScanner::anchors(html);
    ASSERT_EQ(anchors.size(), 1u);
    EXPECT_EQ(anchors[0].whole.size(), html.size());
}

} // namespace
} // namespace qs
