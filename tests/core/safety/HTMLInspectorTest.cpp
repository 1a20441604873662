#include "safety/HTMLInspector.h"
#include "safety/Domains.h"
#include "safety/HTMLPatterns.h"
#include "safety/HTMLScanner.h"
#include "safety/HostMemo.h"

#include "mime/ByteSlice.h"
#include "support/Unicode.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <ranges>

namespace qs {
namespace {

TEST(DomainsTest, HostOfURL) {
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"https://www.example.com/path?q=1#top", "www.example.com"},
        {" \n\thttps://example.org/x \r\n", "example.org"},
        {"http://user:pw@mail.example.net:8080/a", "mail.example.net"},
        {"https://good.com/redirect@evil.com", "good.com"},
        {"http://[2001:db8::1]:80/", "2001:db8::1"},
        {"http://a@b:c@Host.example@real.example:81/x", "real.example"},
        {"http://ex[am]ple.com/", std::nullopt},
        {"http://example.com:8[0]/", std::nullopt},
        {"http://example.com:/", "example.com"},
        {"//cdn.example.com/img.png", "cdn.example.com"},
        {"http://%45x%41mple.com/", "example.com"},
        {"mailto:someone@example.com", std::nullopt},
        {"example.com/path", std::nullopt},
        {"http:///path", std::nullopt},
        {"http://example.com/%zz", std::nullopt},
        {"http://exämple.com/", std::nullopt},
        {"http://example.com/#a#b", std::nullopt},
        {"   ", std::nullopt},
    };
    // One buffer through all the cases: what a longer earlier host left in it must not show.
    std::string reused = "left over from an earlier, longer host";
    for (const auto& [url, host] : cases) {
        EXPECT_EQ(Domains::host(url), host) << url;
        EXPECT_EQ(Domains::host(url, reused), host.has_value()) << url;
        if (host) {
            EXPECT_EQ(reused, *host) << url;
        }
    }
}

TEST(DomainsTest, RegistrableDomain) {
    const std::pair<const char*, const char*> cases[] = {
        {"localhost", "localhost"},
        {"WWW.Example.COM", "example.com"},
        {"..mail.example.com. ", "example.com"},
        {"shop.example.co.uk", "example.co.uk"},
        {"a.shop.example.co.de", "co.de"},
        {"bbc.co.uk", "bbc.co.uk"},
        {"co.uk", "co.uk"},
        {"x.tax.service.gov.uk", "service.gov.uk"},
        {"x.y.net.uk", "net.uk"},
        {"a..b", "a..b"},
        {"a..b..c", "b.c"},
        {"", ""},
    };
    for (const auto& [name, expected] : cases) {
        EXPECT_EQ(Domains::registrable(name), expected) << name;
    }
}

TEST(HostMemoTest, GivesWhatThePlainFunctionsGive) {
    // Names that differ only in case, IDNA form, trailing dots or characters that lower to
    // ASCII: a memo that folded its keys would hand one's answer to another.
    std::vector<std::string> names;
    for (auto name : std::views::split(
             std::string_view("Shop.Example.COM|shop.example.com|shop.example.com.|"
                              "www.shop.example.co.uk|WWW.SHOP.EXAMPLE.CO.UK|xn--bcher-kva.example|"
                              "b\u00FCcher.example|B\u00DCCHER.example|\u212Aey.example.com|"
                              "\u0130.co.uk|localhost||...|x.list-manage.com|X.LIST-MANAGE.COM|"
                              "list-manage.com.evil.example|notsendgrid.net|u1.ct.sendgrid.net|"
                              "mailchimp.com.|a.b.c.emltrk.com"),
             '|')) {
        names.emplace_back(name.begin(), name.end());
    }
    HostMemo memo;
    for (int round = 0; round < 2; ++round) {
        for (const std::string& a : names) {
            EXPECT_EQ(memo.registrable(a), Domains::registrable(a)) << a;
            EXPECT_EQ(memo.isTrackerService(a), HostMemo().isTrackerService(a)) << a;
            for (const std::string& b : names) {
                EXPECT_EQ(memo.sameRegistrable(a, b),
                          Domains::registrable(a) == Domains::registrable(b))
                    << a << " / " << b;
            }
        }
    }
    // Past its size, two new names at once: the first answer must survive the room made for
    // the second.
    HostMemo full;
    auto name = [](size_t i) {
        return "h" + std::to_string(i) + ".site" + std::to_string(i % 7) + ".co.uk";
    };
    for (int round = 0; round < 2; ++round) {
        for (size_t i = 0; i < HostMemo::kMaxEntries * 3 + 5; ++i) {
            ASSERT_EQ(full.registrable(name(i)), Domains::registrable(name(i))) << name(i);
            ASSERT_TRUE(full.sameRegistrable(name(i), "www." + name(i)));
            ASSERT_FALSE(full.sameRegistrable(name(i), name(i + 1)));
        }
    }
}

TEST(HTMLInspectorTest, AttributesOfATag) {
    const std::pair<const char*, HTMLInspector::TagAttributes> cases[] = {
        {R"(<img src="a.png" alt='x y' width=10>)",
         {{"src", "a.png"}, {"alt", "x y"}, {"width", "10"}, {"__bare", "img"}}},
        {R"(<IMG SRC="one" Src="two">)", {{"src", "two"}, {"__bare", "img"}}},
        {"<img hidden src=\"x\" Border\n/>", {{"src", "x"}, {"__bare", "img hidden border"}}},
        {R"(<a href="http://x.com/?a=1&amp;b=2" title="&quot;hi&quot;">)",
         {{"href", "http://x.com/?a=1&b=2"}, {"title", "\"hi\""}, {"__bare", "a"}}},
        // An unclosed quote keeps to the blank and loses its first and last character.
        {R"(<img src="abc def>)", {{"src", "ab"}, {"__bare", "img def"}}},
        {"", {}},
    };
    for (const auto& [tag, expected] : cases) {
        EXPECT_EQ(HTMLInspector::attributes(tag), expected) << tag;
    }
}

TEST(HTMLInspectorTest, TrackerTest) {
    const std::pair<std::string, bool> cases[] = {
        {R"(<img src="cid:logo" width="1" height="1">)", false},
        {R"(<img src="https://unknown.example/p.gif" width="1" height="200">)", true},
        {R"(<img src="https://unknown.example/p.gif" width="2px">)", true},
        {R"(<img src="https://unknown.example/p.gif" width="100%">)", false},
        {R"(<img src="https://unknown.example/p.gif" width="2.5">)", false},
        {R"(<img src="https://unknown.example/p.gif" width="-1">)", true},
        {R"(<img src="https://u.example/a.png" style="max-width:600px; DIS PLAY : No ne">)", true},
        {R"(<img src="https://u.example/a.png" style="display:block;width:10px;height:0">)", true},
        {"<img src=\"https://u.example/a.png\" style=\"width:\xC2\xA0"
         "1px\">",
         false},
        {R"(<img src="https://u.example/a.png" width="1ppxx">)", false},
        {R"(<img src="https://u.example/a.png" hidden="hidden">)", true},
        {R"(<img src="https://u.example/a.png">)", false},
        {R"(<img src="https://gallery.mailchimp.com/logo.png" width="600">)", false},
        {R"(<img src="https://gallery.mailchimp.com/logo.png">)", true},
        {R"(<img src="https://x.list-manage.com/track/open.php?u=1" width="600" height="40">)",
         true},
        {R"(<img src="https://notsendgrid.net/a.png">)", false},
        {R"(<img src="http://list-manage.com/a b.png">)", false},
    };
    for (const auto& [tag, tracker] : cases) {
        EXPECT_EQ(HTMLInspector::isTracker(HTMLInspector::attributes(tag)), tracker) << tag;
    }
}

TEST(HTMLInspectorTest, InspectCountsImages) {
    std::string html = R"(<html><body>
        <img src="cid:part1@x">
        <img src="data:image/png;base64,AAAA">
        <img src="//cdn.example.com/a.png">
        <img alt="no source">
        <img src="https://cdn.shop.example/banner.jpg" width="600" height="200">
        <IMG SRC="HTTPS://CDN.SHOP.EXAMPLE/logo.png">
        <img src="https://x.list-manage.com/track/open.php?u=1" width="1" height="1">
        <img src="https://y.list-manage.com/track/open.php?u=2">
        <img src="http://pixel.tracker.example/p.gif" width=1 height=1>
        <img src="https://sub.emltrk.com/abc" >
        <imgx src="https://u.example/not-an-image.png">
        </body></html>)";
    HTMLReport report = HTMLInspector::inspect(html);
    EXPECT_EQ(report.remoteImageCount, 2);
    EXPECT_EQ(report.trackerCount, 4);
    EXPECT_EQ(report.trackerHosts,
              (std::vector<std::string>{"list-manage.com", "tracker.example", "emltrk.com"}));
    EXPECT_TRUE(report.linkWarnings.empty());
}

TEST(HTMLInspectorTest, LinkWarnings) {
    const LinkWarning evil{"x.com", "x.com", "evil.example.net", "https://evil.example.net/"};
    const std::pair<std::string, std::vector<LinkWarning>> cases[] = {
        {R"(<a href="https://evil.example.net/">www.example.com</a>)",
         {{"www.example.com", "www.example.com", "evil.example.net", "https://evil.example.net/"}}},
        {"<A HREF='http://phish.example.org/x?a=1&amp;b=2'>Sign in at <b>PayPal.com</b> now</a>",
         {{"Sign in at PayPal.com now", "paypal.com", "phish.example.org",
           "http://phish.example.org/x?a=1&b=2"}}},
        {"<a href=\"https://e.example/\">\n Visit\u00a0\u00a0 evil&#46;shop.com\t now "
         "\u3000</a>",
         {{"Visit evil.shop.com now", "evil.shop.com", "e.example", "https://e.example/"}}},
        {R"(<a href="https://evil.example.net/">Click here</a>)", {}},
        {R"(<a href="https://files.example.net/r">report.pdf</a>)", {}},
        {R"(<a href="mailto:a@b.com">www.example.com</a>)", {}},
        {R"(<a href="https://evil.example.net/"> <img src="x.png"> </a>)", {}},
        {R"(<a href="https://t.example.net/c/1">https://www.bank.example/login</a>)",
         {{"https://www.bank.example/login", "www.bank.example", "t.example.net",
           "https://t.example.net/c/1"}}},
        {R"(<a href="https://evil.example.net/">www.example.com)", {}},
        {R"(<abbr href="https://evil.example.net/">x.com</abbr>)", {}},
        {"<a href=\"https://evil.example.net/\">x.com</a \n>", {evil}},
        // The tag's own name takes the value.
        {R"(<a =href=https://evil.example.net/>x.com</a>)", {}},
        {R"(<a href="https://www.bank.co.uk/">online.bank.co.uk</a>)", {}},
        {R"(<a href="https://evil.example.net/">x.com</a> <a href="https://one.example/">b.com</a>)"
         R"(<a href="https://b.com/">b.com</a>)",
         {evil, {"b.com", "b.com", "one.example", "https://one.example/"}}},
    };
    for (const auto& [html, expected] : cases) {
        EXPECT_EQ(HTMLInspector::linkWarnings(html), expected) << html;
        EXPECT_EQ(HTMLInspector::inspect(html).linkWarnings, expected) << html;
    }
    auto link = [](size_t length) {
        std::string text = "see example.com ";
        text.append(length - text.size(), 'x');
        return "<a href=\"https://evil.example.net/\">" + text + "</a>";
    };
    EXPECT_EQ(HTMLInspector::linkWarnings(link(199)).size(), 1u);
    EXPECT_TRUE(HTMLInspector::linkWarnings(link(200)).empty());
    std::string accented = "<a href=\"https://evil.example.net/\">example.com ";
    for (int i = 0; i < 150; ++i) {
        accented += "é";
    }
    EXPECT_EQ(HTMLInspector::linkWarnings(accented + "</a>").size(), 1u);
}

MailAttachment inlineImage(std::string contentID, std::string data) {
    return {.filename = "image.png",
            .mimeType = "image/png",
            .data = ByteSlice(std::move(data)),
            .contentID = std::move(contentID),
            .isInline = true};
}

const std::string kHeadBlock =
    "<meta charset=\"utf-8\">\n"
    "<meta http-equiv=\"Content-Security-Policy\" content=\"script-src 'none'; object-src "
    "'none'\">\n"
    "<style>html{background:#fff} body{margin:18px 22px;font:14px "
    "-apple-system,system-ui,sans-serif;color:#1d1d1f;word-wrap:break-word} "
    "img{max-width:100%;height:auto} table{max-width:100%}</style>";

TEST(HTMLInspectorTest, PrepareForDisplay) {
    EXPECT_EQ(HTMLInspector::prepareForDisplay("<p>Hi</p>", {}, true),
              "<!doctype html><html><head>" + kHeadBlock + "</head><body><p>Hi</p></body></html>");
    EXPECT_EQ(
        HTMLInspector::prepareForDisplay("<HEAD lang=\"en\"><style>p{}</style></HEAD>x", {}, false),
        "<HEAD lang=\"en\">" + kHeadBlock + "<style>p{}</style></HEAD>x");

    std::string html = "<head></head><img src=\"cid:logo@x\"><img src=\"cid:big@x\">"
                       "<img src=\"cid:under@x\">"
                       "<img src=\"https://t.example/o.gif\" width=\"1\" height=\"1\">"
                       "<img src=\"https://cdn.example/photo.jpg\" width=\"300\">"
                       "<p>cid:logo@x</p>";
    std::vector<MailAttachment> attachments = {
        inlineImage("logo@x", "abcd"), inlineImage("big@x", std::string(8'000'000, 'x')),
        inlineImage("under@x", std::string(7'999'999, '\0')), inlineImage("unused@x", "zz")};
    std::string out = HTMLInspector::prepareForDisplay(html, attachments, false);
    std::string under =
        "<img src=\"data:image/png;base64," + std::string(10'666'664, 'A') + "AA==\">";
    EXPECT_TRUE(out == "<head>" + kHeadBlock +
                           "</head><img src=\"data:image/png;base64,YWJjZA==\">"
                           "<img src=\"cid:big@x\">" +
                           under +
                           "<!-- tracker removed by Quernstead -->"
                           "<img src=\"https://cdn.example/photo.jpg\" width=\"300\">"
                           "<p>data:image/png;base64,YWJjZA==</p>");

    const std::pair<const char*, const char*> paddings[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}};
    for (const auto& [data, encoded] : paddings) {
        EXPECT_TRUE(HTMLInspector::prepareForDisplay("<head>cid:i", {inlineImage("i", data)}, false)
                        .ends_with(std::string("data:image/png;base64,") + encoded))
            << data;
    }
}

TEST(HTMLInspectorTest, PlainTextDocument) {
    const std::string end = "</body></html>";
    const std::string empty = HTMLInspector::plainTextDocument("");
    ASSERT_TRUE(empty.starts_with("<!doctype html><html><head><meta charset=\"utf-8\">\n<style>"));
    ASSERT_TRUE(empty.ends_with("</style></head><body>" + end));
    const std::string head = empty.substr(0, empty.size() - end.size());
    const std::pair<const char*, std::string> cases[] = {
        {"a<b> & \"c\"", "a&lt;b&gt; &amp; &quot;c&quot;"},
        {"See https://x.com/?a=1&b=2> now\nhttp://y.org",
         "See <a href=\"https://x.com/?a=1&amp;b=2&gt;\">https://x.com/?a=1&amp;b=2&gt;</a>"
         " now\n<a href=\"http://y.org\">http://y.org</a>"},
        {"HTTP://X.COM", "HTTP://X.COM"},
    };
    for (const auto& [text, body] : cases) {
        EXPECT_EQ(HTMLInspector::plainTextDocument(text), head + body + end) << text;
    }
}

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
    auto parts = [](const HTMLScanner::Anchor& a) {
        return std::vector{a.whole, a.attributes, a.content};
    };
    auto anchors = HTMLScanner::anchors(html);
    EXPECT_EQ(repaired(anchors, parts), regexMatches(HTMLPatterns::anchorRegex(), html, {0, 1, 2}))
        << label;
    // The one-pass scan the inspector uses finds what the separate scans find.
    HTMLScanner::Tags tags = HTMLScanner::tags(html);
    EXPECT_EQ(tags.images, HTMLScanner::imgTags(html)) << label;
    EXPECT_EQ(repaired(tags.anchors, parts), repaired(anchors, parts)) << label;
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

TEST(HTMLScannerTest, DomainInTextAgreesWithThePatternAndHeadTag) {
    std::vector<std::string> texts = {"Visit WWW.Shop.Example.COM/deals today",
                                      "https://www.bank.example/login", "http://1.2.3.4 then b.cd",
                                      "x.abcdefghijklmnopqrstuvwxyzabcdef",
                                      "1.9http://-:1.9http://-: a.bc"};
    std::ranges::copy(randomTexts("h|H|t|T|p|s|:|/|.|.|a|bc|Z|0|-| |_|com|co.uk|http://|"
                                  "HTTPS://|x.|ab.|\n|#|?|abcdefghijklmnopqrstuvwxyzab",
                                  41, 20000, 14),
                      std::back_inserter(texts));
    for (const std::string& text : texts) {
        auto groups = regexMatches(HTMLPatterns::domainInText(), text, {1});
        auto domain = HTMLScanner::domainInASCIIText(text);
        EXPECT_EQ(domain ? std::optional<std::string>(*domain) : std::nullopt,
                  groups.empty() ? std::nullopt : std::optional(groups.front()))
            << text;
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
