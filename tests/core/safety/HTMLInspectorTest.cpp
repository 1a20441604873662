#include "safety/HTMLInspector.h"

#include "mime/ByteSlice.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

using HTMLInspector::TagAttributes;

TEST(HTMLInspectorTest, AttributesOfATag) {
    const std::pair<const char*, TagAttributes> cases[] = {
        {R"(<img src="a.png" alt='x y' width=10>)",
         {{"src", "a.png"}, {"alt", "x y"}, {"width", "10"}, {"__bare", "img"}}},
        {R"(<IMG SRC="one" Src="two">)", {{"src", "two"}, {"__bare", "img"}}},
        {"<img hidden src=\"x\" Border\n/>", {{"src", "x"}, {"__bare", "img hidden border"}}},
        {R"(<a href="http://x.com/?a=1&amp;b=2" title="&quot;hi&quot;">)",
         {{"href", "http://x.com/?a=1&b=2"}, {"title", "\"hi\""}, {"__bare", "a"}}},
        {R"(<img width = "1" height= 2>)", {{"width", "1"}, {"height", "2"}, {"__bare", "img"}}},
        // An unclosed quote keeps to the blank and loses its first and last character.
        {R"(<img src="abc def>)", {{"src", "ab"}, {"__bare", "img def"}}},
        {R"(<td data-x-y="1">)", {{"data-x-y", "1"}, {"__bare", "td"}}},
        {"", {}},
    };
    for (const auto& [tag, expected] : cases) {
        EXPECT_EQ(HTMLInspector::attributes(tag), expected) << tag;
    }
}

TEST(HTMLInspectorTest, TrackerTest) {
    const std::pair<std::string, bool> cases[] = {
        {R"(<img width="1">)", false},
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
        {R"(<a href="https://shop.example.com/sale">www.example.com</a>)", {}},
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

} // namespace
} // namespace qs
