#include "safety/HTMLInspector.h"

#include "mime/ByteSlice.h"
#include "mime/HTMLText.h"
#include "safety/TextUtil.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

using HTMLInspector::TagAttributes;

TEST(HTMLInspectorTest, AttributesOfATag) {
    struct Case {
        const char* name;
        const char* tag;
        TagAttributes expected;
    };
    const Case cases[] = {
        {"quotes of both kinds and none",
         R"(<img src="a.png" alt='x y' width=10>)",
         {{"src", "a.png"}, {"alt", "x y"}, {"width", "10"}, {"__bare", "img"}}},
        {"names lower-cased, later wins",
         R"(<IMG SRC="one" Src="two">)",
         {{"src", "two"}, {"__bare", "img"}}},
        {"valueless attributes stand in __bare",
         "<img hidden src=\"x\" Border\n/>",
         {{"src", "x"}, {"__bare", "img hidden border"}}},
        {"entities decoded",
         R"(<a href="http://x.com/?a=1&amp;b=2" title="&quot;hi&quot;">)",
         {{"href", "http://x.com/?a=1&b=2"}, {"title", "\"hi\""}, {"__bare", "a"}}},
        {"spaces around the equals sign",
         R"(<img width = "1" height= 2>)",
         {{"width", "1"}, {"height", "2"}, {"__bare", "img"}}},
        {"unclosed quote keeps to the blank and loses first and last",
         R"(<img src="abc def>)",
         {{"src", "ab"}, {"__bare", "img def"}}},
        {"hyphenated names", R"(<td data-x-y="1">)", {{"data-x-y", "1"}, {"__bare", "td"}}},
        {"nothing at all", "", {}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(HTMLInspector::attributes(c.tag), c.expected) << c.name;
    }
}

TEST(HTMLInspectorTest, TrackerTest) {
    struct Case {
        const char* name;
        const char* tag;
        bool tracker;
    };
    const Case cases[] = {
        {"no source", R"(<img width="1">)", false},
        {"local source", R"(<img src="cid:logo" width="1" height="1">)", false},
        {"one tiny dimension is enough",
         R"(<img src="https://unknown.example/p.gif" width="1" height="200">)", true},
        {"2px counts as 2", R"(<img src="https://unknown.example/p.gif" width="2px">)", true},
        {"a percentage isn't a size", R"(<img src="https://unknown.example/p.gif" width="100%">)",
         false},
        {"2.5 isn't small", R"(<img src="https://unknown.example/p.gif" width="2.5">)", false},
        {"negative is small", R"(<img src="https://unknown.example/p.gif" width="-1">)", true},
        {"display none", R"(<img src="https://u.example/a.png" style="DISPLAY: none">)", true},
        {"visible style", R"(<img src="https://u.example/a.png" style="border:0">)", false},
        {"blanks inside the words of a rule",
         R"(<img src="https://u.example/a.png" style="max-width:600px; DIS PLAY : No ne">)", true},
        {"a rule's start that doesn't go on",
         R"(<img src="https://u.example/a.png" style="display:block;width:10px;height:0">)", true},
        {"a no-break space is not a blank here",
         "<img src=\"https://u.example/a.png\" style=\"width:\xC2\xA0"
         "1px\">",
         false},
        {"px deleted once, left to right", R"(<img src="https://u.example/a.png" width="1ppxx">)",
         false},
        {"hidden attribute with value", R"(<img src="https://u.example/a.png" hidden="hidden">)",
         true},
        {"bare hidden word", R"(<img hidden src="https://u.example/a.png">)", true},
        {"unknown host, no size", R"(<img src="https://u.example/a.png">)", false},
        {"known service, big, no hint",
         R"(<img src="https://gallery.mailchimp.com/logo.png" width="600">)", false},
        {"known service, no size", R"(<img src="https://gallery.mailchimp.com/logo.png">)", true},
        {"known service, path hint",
         R"(<img src="https://x.list-manage.com/track/open.php?u=1" width="600" height="40">)",
         true},
        {"known registrable domain",
         R"(<img src="https://u123.ct.sendgrid.net/wf/open?upn=x" width="300">)", true},
        {"suffix must follow a dot", R"(<img src="https://notsendgrid.net/a.png">)", false},
        {"unparsable url is no tracker by domain", R"(<img src="http://list-manage.com/a b.png">)",
         false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(HTMLInspector::isTracker(HTMLInspector::attributes(c.tag)), c.tracker) << c.name;
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
    struct Case {
        const char* name;
        const char* html;
        std::vector<LinkWarning> expected;
    };
    const Case cases[] = {
        {"www name to the same site",
         R"(<a href="https://shop.example.com/sale">www.example.com</a>)",
         {}},
        {"www name to another site",
         R"(<a href="https://evil.example.net/login">www.example.com</a>)",
         {{"www.example.com", "www.example.com", "evil.example.net",
           "https://evil.example.net/login"}}},
        {"domain inside a sentence, with markup and entities",
         "<A HREF='http://phish.example.org/x?a=1&amp;b=2'>Sign in at <b>PayPal.com</b> now</a>",
         {{"Sign in at PayPal.com now", "paypal.com", "phish.example.org",
           "http://phish.example.org/x?a=1&b=2"}}},
        {"click here", R"(<a href="https://evil.example.net/">Click here</a>)", {}},
        {"file name", R"(<a href="https://files.example.net/r">report.pdf</a>)", {}},
        {"file name in upper case", R"(<a href="https://files.example.net/r">REPORT.PDF</a>)", {}},
        {"mailto", R"(<a href="mailto:a@b.com">www.example.com</a>)", {}},
        {"relative link", R"(<a href="/login">www.example.com</a>)", {}},
        {"empty text", R"(<a href="https://evil.example.net/"> <img src="x.png"> </a>)", {}},
        {"url as text",
         R"(<a href="https://t.example.net/c/1">https://www.bank.example/login</a>)",
         {{"https://www.bank.example/login", "www.bank.example", "t.example.net",
           "https://t.example.net/c/1"}}},
        {"unclosed link", R"(<a href="https://evil.example.net/">www.example.com)", {}},
        {"abbr is not a link", R"(<abbr href="https://evil.example.net/">x.com</abbr>)", {}},
        {"closing tag with blanks",
         "<a href=\"https://evil.example.net/\">x.com</a \n>",
         {{"x.com", "x.com", "evil.example.net", "https://evil.example.net/"}}},
        {"the tag's own name takes the value",
         R"(<a =href=https://evil.example.net/>x.com</a>)",
         {}},
        {"co.uk suffix", R"(<a href="https://www.bank.co.uk/">online.bank.co.uk</a>)", {}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(HTMLInspector::linkWarnings(c.html), c.expected) << c.name;
    }
}

TEST(HTMLInspectorTest, LinkTextLengthLimit) {
    auto link = [](size_t length) {
        std::string text = "see example.com ";
        text.append(length - text.size(), 'x');
        return "<a href=\"https://evil.example.net/\">" + text + "</a>";
    };
    EXPECT_EQ(HTMLInspector::linkWarnings(link(199)).size(), 1u);
    EXPECT_TRUE(HTMLInspector::linkWarnings(link(200)).empty());
    // Characters, not bytes: 150 two-byte letters are 150 characters.
    std::string accented = "<a href=\"https://evil.example.net/\">example.com ";
    for (int i = 0; i < 150; ++i) {
        accented += "é";
    }
    EXPECT_EQ(HTMLInspector::linkWarnings(accented + "</a>").size(), 1u);
}

TEST(HTMLInspectorTest, ShownTextIsThePlainTextOfTheLink) {
    const char* contents[] = {
        "evil-shop.com",
        "\n  Visit\xc2\xa0\xc2\xa0 evil-shop.com\t now \n",
        "<span style=\"x\">Go to</span> <b>evil-shop.com</b><br>today",
        "evil&#46;shop&period;com &amp; more",
        "&amp;#46; evil-shop.com",
        "<!-- a.com --> b.com",
        "\xe3\x80\x80 evil-shop.com \xe3\x80\x80",
    };
    for (const char* content : contents) {
        std::string html =
            std::string("<a href=\"https://elsewhere.example/\">") + content + "</a>";
        auto warnings = HTMLInspector::linkWarnings(html);
        ASSERT_EQ(warnings.size(), 1u) << content;
        std::string plain = HTMLText::toPlain(content);
        EXPECT_EQ(warnings[0].shownText, TextUtil::trimWhitespace(plain)) << content;
    }
}

TEST(HTMLInspectorTest, LinkWarningsInDocumentOrder) {
    std::string html = R"(<p><a href="https://one.example.net/">a.com</a> and
        <a href="https://two.example.net/">b.com</a><a href="https://b.com/">b.com</a></p>)";
    auto warnings = HTMLInspector::linkWarnings(html);
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0].actualHost, "one.example.net");
    EXPECT_EQ(warnings[1].actualHost, "two.example.net");
    EXPECT_EQ(HTMLInspector::inspect(html).linkWarnings, warnings);
}

TEST(HTMLInspectorTest, OneDocumentJudgesEachHostAsAlone) {
    // Hosts that differ only in case, percent escapes or IDNA form, next to each other in one
    // mail: what the inspection learns about one host must not decide another. Each piece is
    // judged alone, and the whole document must add up to exactly those judgements.
    const std::vector<std::string> pieces = {
        R"(<a href="https://Shop.Example.COM/a">shop.example.com</a>)",
        R"(<a href="https://shop.example.com.evil.example/a">shop.example.com</a>)",
        R"(<a href="https://xn--bcher-kva.example/">b%C3%BCcher.example</a>)",
        R"(<a href="https://b%C3%BCcher.example/">xn--bcher-kva.example</a>)",
        "<a href=\"https://B%C3%9CCHER.example/\">b\xC3\xBC"
        "cher.example</a>",
        "<a href=\"https://b%C3%BCcher.example/\">B\xC3\x9C"
        "CHER.EXAMPLE</a>",
        "<a href=\"https://shop.example.co.uk/\">\xE2\x84\xAA"
        "shop.example.co.uk</a>",
        R"(<a href="https://www.shop.example.co.uk/">SHOP.EXAMPLE.CO.UK</a>)",
        R"(<img src="https://X.LIST-MANAGE.COM/a.png" width="600">)",
        R"(<img src="https://x.list-manage.com.evil.example/a.png">)",
        R"(<img src="https://list-manage.com/track/a.png" width="600">)",
        R"(<img src="https://%6Cist-manage.com/a.png">)",
        R"(<img src="https://lists-manage.com/a.png">)",
        R"(<img src="https://cdn.example.com/a.png" style="width:1PX">)",
    };
    std::string whole;
    HTMLReport expected;
    for (const std::string& piece : pieces) {
        whole += piece + "\n";
        HTMLReport alone = HTMLInspector::inspect(piece);
        expected.remoteImageCount += alone.remoteImageCount;
        expected.trackerCount += alone.trackerCount;
        for (const std::string& host : alone.trackerHosts) {
            if (std::find(expected.trackerHosts.begin(), expected.trackerHosts.end(), host) ==
                expected.trackerHosts.end()) {
                expected.trackerHosts.push_back(host);
            }
        }
        expected.linkWarnings.insert(expected.linkWarnings.end(), alone.linkWarnings.begin(),
                                     alone.linkWarnings.end());
    }
    EXPECT_EQ(HTMLInspector::inspect(whole), expected);
    // The pieces are chosen to give both answers.
    EXPECT_GE(expected.linkWarnings.size(), 3u);
    EXPECT_LT(expected.linkWarnings.size(), 8u);
    EXPECT_GE(expected.trackerCount, 2);
    EXPECT_GE(expected.remoteImageCount, 2);
}

MailAttachment inlineImage(std::string contentID, std::string data) {
    MailAttachment attachment;
    attachment.filename = "image.png";
    attachment.mimeType = "image/png";
    attachment.contentID = std::move(contentID);
    attachment.data = ByteSlice(std::move(data));
    attachment.isInline = true;
    return attachment;
}

const std::string kHeadBlock =
    "<meta charset=\"utf-8\">\n"
    "<meta http-equiv=\"Content-Security-Policy\" content=\"script-src 'none'; object-src "
    "'none'\">\n"
    "<style>html{background:#fff} body{margin:18px 22px;font:14px "
    "-apple-system,system-ui,sans-serif;color:#1d1d1f;word-wrap:break-word} "
    "img{max-width:100%;height:auto} table{max-width:100%}</style>";

// The head block goes into a new document around head-less HTML, or after an existing head tag.
TEST(HTMLInspectorTest, PrepareAddsTheHeadBlock) {
    EXPECT_EQ(HTMLInspector::prepareForDisplay("<p>Hi</p>", {}, true),
              "<!doctype html><html><head>" + kHeadBlock + "</head><body><p>Hi</p></body></html>");
    EXPECT_EQ(
        HTMLInspector::prepareForDisplay("<HEAD lang=\"en\"><style>p{}</style></HEAD>x", {}, false),
        "<HEAD lang=\"en\">" + kHeadBlock + "<style>p{}</style></HEAD>x");
}

TEST(HTMLInspectorTest, PrepareRemovesTrackersAndInlinesImages) {
    std::string html = "<head></head><img src=\"cid:logo@x\"><img src=\"cid:big@x\">"
                       "<img src=\"https://t.example/o.gif\" width=\"1\" height=\"1\">"
                       "<img src=\"https://cdn.example/photo.jpg\" width=\"300\">"
                       "<p>cid:logo@x</p>";
    std::vector<MailAttachment> attachments = {inlineImage("logo@x", "abcd"),
                                               inlineImage("big@x", std::string(8'000'000, 'x')),
                                               inlineImage("unused@x", "zz")};
    std::string out = HTMLInspector::prepareForDisplay(html, attachments, false);
    EXPECT_EQ(out, "<head>" + kHeadBlock +
                       "</head><img src=\"data:image/png;base64,YWJjZA==\">"
                       "<img src=\"cid:big@x\"><!-- tracker removed by Quernstead -->"
                       "<img src=\"https://cdn.example/photo.jpg\" width=\"300\">"
                       "<p>data:image/png;base64,YWJjZA==</p>");
}

// Just under the limit is inlined; at the limit stays a cid: link (above).
TEST(HTMLInspectorTest, InlineImageJustUnderTheSizeLimit) {
    auto out = HTMLInspector::prepareForDisplay(
        "<head><img src=\"cid:a\">", {inlineImage("a", std::string(7'999'999, '\0'))}, false);
    EXPECT_EQ(out.find("cid:a"), std::string::npos);
    EXPECT_NE(out.find("data:image/png;base64,AAAA"), std::string::npos);
}

TEST(HTMLInspectorTest, Base64PaddingOfInlinedData) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}};
    for (const auto& [data, encoded] : cases) {
        std::string out =
            HTMLInspector::prepareForDisplay("<head>cid:i", {inlineImage("i", data)}, false);
        EXPECT_EQ(out.substr(out.size() - std::string(encoded).size() - 22),
                  std::string("data:image/png;base64,") + encoded)
            << data;
    }
}

TEST(HTMLInspectorTest, PlainTextDocument) {
    const std::string head = "<!doctype html><html><head><meta charset=\"utf-8\">\n"
                             "<style>\n"
                             ":root{color-scheme:light dark}\n"
                             "body{margin:18px 22px;font:14px/1.55 "
                             "-apple-system,system-ui,sans-serif;white-space:pre-wrap;word-wrap:"
                             "break-word;color:#1d1d1f;background:transparent}\n"
                             "a{color:#1e3c72}\n"
                             "@media (prefers-color-scheme: dark){body{color:#ececf0} "
                             "a{color:#5cc4b6}}\n"
                             "</style></head><body>";
    EXPECT_EQ(HTMLInspector::plainTextDocument("(This message has no text.)"),
              head + "(This message has no text.)</body></html>");
    EXPECT_EQ(HTMLInspector::plainTextDocument("a<b> & \"c\""),
              head + "a&lt;b&gt; &amp; &quot;c&quot;</body></html>");
    EXPECT_EQ(
        HTMLInspector::plainTextDocument("See https://x.com/?a=1&b=2> now\nhttp://y.org"),
        head + "See <a href=\"https://x.com/?a=1&amp;b=2&gt;\">https://x.com/?a=1&amp;b=2&gt;</a>"
               " now\n<a href=\"http://y.org\">http://y.org</a></body></html>");
    EXPECT_EQ(HTMLInspector::plainTextDocument("HTTP://X.COM"),
              head + "HTTP://X.COM</body></html>");
}

} // namespace
} // namespace qs
