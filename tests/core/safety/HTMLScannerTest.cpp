#include "safety/HTMLScanner.h"

#include "safety/HTMLPatterns.h"
#include "support/Unicode.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace qs {
namespace {

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

template <typename Matches, typename Parts>
std::vector<std::string> repaired(const Matches& matches, Parts parts) {
    std::vector<std::string> out;
    for (const auto& match : matches) {
        for (std::string_view part : parts(match)) {
            out.push_back(Unicode::toUTF8(Unicode::fromUTF8(part)));
        }
    }
    return out;
}

void expectSameAttributes(std::string_view tag, const std::string& label) {
    auto parts = [](const HTMLScanner::Attribute& a) {
        return std::vector{a.whole, a.name, a.value};
    };
    EXPECT_EQ(repaired(HTMLScanner::attributes(tag), parts),
              regexMatches(HTMLPatterns::attrRegex(), tag, {0, 1, 2}))
        << label << ": " << tag;
}

void expectSameAsPatterns(std::string_view html, const std::string& label) {
    EXPECT_EQ(
        repaired(HTMLScanner::imgTags(html), [](std::string_view tag) { return std::vector{tag}; }),
        regexMatches(HTMLPatterns::imgRegex(), html, {0}))
        << label;
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
    auto parts = [](const HTMLScanner::Anchor& a) {
        return std::vector{a.whole, a.attributes, a.content};
    };
    EXPECT_EQ(repaired(anchors, parts), regexMatches(HTMLPatterns::anchorRegex(), html, {0, 1, 2}))
        << label;
    for (std::string_view tag : HTMLScanner::imgTags(html)) {
        expectSameAttributes(tag, label);
    }
    for (const HTMLScanner::Anchor& anchor : anchors) {
        expectSameAttributes(anchor.attributes, label);
    }
}

std::vector<std::string> randomTexts(std::string_view pieces, unsigned seed, int rounds,
                                     unsigned most) {
    std::vector<std::string> choices;
    for (size_t at = 0, bar; at <= pieces.size(); at = bar + 1) {
        bar = std::min(pieces.find('|', at), pieces.size());
        choices.emplace_back(pieces.substr(at, bar - at));
    }
    std::mt19937 random(seed);
    std::vector<std::string> out(size_t(rounds), "");
    for (std::string& text : out) {
        for (unsigned length = random() % most; length > 0; --length) {
            text += choices[random() % choices.size()];
        }
    }
    return out;
}

TEST(HTMLScannerTest, AgreesWithThePatterns) {
    // What the random pass never generates: other blanks and bytes, and nested links.
    for (const char* html : {"<IMG SRC=x><imgx src=1><img/src=2><img\tsrc=3>",
                             "<img\u0301 src=combining><img\u00e9><img\u200b>",
                             "<a href=x>one <a href=y>two</a> three</a><a\nhref=y>3</a\t\n>",
                             "<a href=x>text</a\u3000><a>t</a\v><a>u</a\u0085>",
                             "x<a\xff>bad byte</a><head><HEAD x=1>"}) {
        expectSameAsPatterns(html, html);
    }
    for (const std::string& html : randomTexts(
             "<a|<A|<img|<IMG|>|</a|</A|</a>| |\n|x|href=\"h\"|<|/|\u00a0|é|b|<abbr|<imgs|'|\"",
             20261122, 3000, 30)) {
        expectSameAsPatterns(html, html);
    }
}

TEST(HTMLScannerTest, AttributesAgreeWithThePattern) {
    for (const char* tag :
         {"<img src=\"unclosed width=1>", "<img data-x-y=1 -=2 =3 a==4 b=\"\" c=''>",
          "<img x=\"a\nb\" y=a\xff"
          "b>",
          "<img src=http://x/y?a=1&amp;b=2>", "<img src=a\vb c=d\u0085e f=\x1cg>",
          "name1name2=v"}) {
        expectSameAttributes(tag, "case");
    }
    for (const std::string& tag :
         randomTexts("a|B|-|=| |\t|\n|\"|'|>|<|x1|\u00a0|\u2003|é|\v|\u0085", 7, 5000, 16)) {
        expectSameAttributes(tag, "random");
    }
}

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

TEST(HTMLScannerTest, DomainInTextAgreesWithThePatternAndHeadTag) {
    const char* cases[] = {"Visit WWW.Shop.Example.COM/deals today",
                           "https://www.bank.example/login", "http://1.2.3.4 then b.cd",
                           "x.abcdefghijklmnopqrstuvwxyzabcdef", "1.9http://-:1.9http://-: a.bc"};
    for (const char* text : cases) {
        EXPECT_EQ(scannedDomain(text), patternDomain(text)) << text;
    }
    for (const std::string& text :
         randomTexts("h|H|t|T|p|s|:|/|.|.|a|bc|Z|0|-| |_|com|co.uk|http://|"
                     "HTTPS://|x.|ab.|\n|#|?|abcdefghijklmnopqrstuvwxyzab",
                     41, 20000, 14)) {
        EXPECT_EQ(scannedDomain(text), patternDomain(text)) << text;
    }
    EXPECT_EQ(HTMLScanner::endOfHeadTag("<html><Head class=x><title>"), 20u);
    EXPECT_EQ(HTMLScanner::endOfHeadTag("<header>"), 8u); // the pattern has no word boundary
    EXPECT_EQ(HTMLScanner::endOfHeadTag("<p>no head</p>"), std::nullopt);
    EXPECT_EQ(HTMLScanner::endOfHeadTag("<head"), std::nullopt);
}

TEST(HTMLScannerTest, StaysLinear) {
    // Each of these would make a backtracking or naive search rescan the rest of the text:
    // dotted runs that never end in two letters, schemes that lead nowhere, unclosed links.
    std::string text;
    for (int i = 0; i < 100'000; ++i) {
        text += "1.9http://-:";
    }
    EXPECT_EQ(HTMLScanner::domainInASCIIText(text), std::nullopt);
    EXPECT_EQ(HTMLScanner::domainInASCIIText(text + " a.bc"), "a.bc");
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
