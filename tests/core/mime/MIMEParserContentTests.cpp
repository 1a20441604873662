#include "mime/MIMEParser.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

// A multipart with boundary "b<subtype>" around `parts` (each a header block, a blank line and
// a body).
std::string multipart(std::string_view subtype, const std::vector<std::string>& parts) {
    std::string boundary = "b" + std::string(subtype);
    std::string message =
        "Content-Type: multipart/" + std::string(subtype) + "; boundary=\"" + boundary + "\"\n\n";
    for (const auto& part : parts) {
        message += "--" + boundary + "\n" + part + "\n";
    }
    return message + "--" + boundary + "--\n";
}

std::vector<std::string> names(const std::vector<MailAttachment>& attachments) {
    std::vector<std::string> out;
    for (const auto& attachment : attachments) {
        out.push_back(attachment.filename);
    }
    return out;
}

const std::string kPlainA = "Content-Type: text/plain\n\nplain A";
const std::string kPlainB = "Content-Type: text/plain\n\nplain B";
const std::string kHTMLA = "Content-Type: text/html\n\n<p>html A</p>";
const std::string kHTMLB = "Content-Type: text/html\n\n<p>html B</p>";
const std::string kPNG = "Content-Type: image/png\n\npng";

TEST(MIMEParserContent, PicksTextAndHTML) {
    struct Row {
        const char* name;
        std::string message;
        std::optional<std::string> text, html;
        std::string plain;
        std::vector<std::string> attachments = {};
    } rows[] = {
        {"alternative: first text, last HTML",
         multipart("alternative", {kPlainA, kPlainB, kHTMLA, kHTMLB}), "plain A", "<p>html B</p>",
         "plain A"},
        {"mixed collects all in order", multipart("mixed", {kPlainA, kHTMLA, kPlainB, kHTMLB}),
         "plain A\n\nplain B", "<p>html A</p><hr><p>html B</p>", "plain A\n\nplain B"},
        {"no text parts",
         multipart("mixed", {"Content-Type: image/gif\n\nGIF"}),
         std::nullopt,
         std::nullopt,
         "",
         {"attachment-1.gif"}},
        {"enriched is text, unconverted",
         multipart("mixed", {"Content-Type: text/enriched\n\n<bold>x</bold>"}), "<bold>x</bold>",
         std::nullopt, "<bold>x</bold>"},
        {"text kept as written",
         multipart("alternative", {"Content-Type: text/plain\n\n  hi\n", kHTMLA}), "  hi\n",
         "<p>html A</p>", "  hi\n"},
        {"blank text falls back to HTML",
         multipart("alternative", {"Content-Type: text/plain\n\n \n\t\n", kHTMLA}), " \n\t\n",
         "<p>html A</p>", "html A"},
        {"HTML only", "Content-Type: text/html\n\n<p>a</p><p>b</p>", std::nullopt,
         "<p>a</p><p>b</p>", "a\n b"},
        {"each part through its charset",
         multipart("mixed", {"Content-Type: text/plain; charset=koi8-r\n\n\xF0\xD2\xC9\xD7\xC5\xD4",
                             "Content-Type: text/html; charset=windows-1252\n"
                             "Content-Transfer-Encoding: quoted-printable\n\n=93q=94"}),
         "Привет", "“q”", "Привет"},
        // A related child holding HTML and an image is one HTML child; the plain child after it
        // gives no HTML and so doesn't displace it.
        {"alternative judges whole children",
         multipart("alternative", {multipart("related", {kHTMLA, kPNG}), kPlainA}),
         "plain A",
         "<p>html A</p>",
         "plain A",
         {"attachment-1.png"}},
        // What mailers really send.
        {"ISO-2022-JP with a redundant reset",
         "Content-Type: text/plain; charset=iso-2022-jp\r\n\r\n\x1b$BF|\x1b(B\x1b$BK\\\x1b(B\r\n",
         "日本\r\n", std::nullopt, "日本\r\n"},
        {"lines ending in CR alone", "From: a@example.org\rSubject: Old Mac\r\rfirst\rsecond\r",
         "first\nsecond\n", std::nullopt, "first\nsecond\n"},
        {"CR alone in a multipart",
         "Content-Type: multipart/mixed; boundary=b\r\r--b\rContent-Type: text/plain\r\rpart\r"
         "--b--\r",
         "part", std::nullopt, "part"},
        {"base64 EUC-KR followed by a list footer",
         "Content-Type: text/plain; charset=euc-kr\r\nContent-Transfer-Encoding: base64\r\n\r\n"
         "x9Gxub7uILjewM/A1LTPtNk=\r\n\r\n_______________\r\nList mailing list\r\n",
         "한국어 메일입니다", std::nullopt, "한국어 메일입니다"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto message = MIMEParser::parse(row.message);
        EXPECT_EQ(message.textBody, row.text);
        EXPECT_EQ(message.htmlBody, row.html);
        EXPECT_EQ(message.plainText(), row.plain);
        EXPECT_EQ(names(message.attachments), row.attachments);
    }
    EXPECT_EQ(MIMEParser::parse("Subject: Old Mac\r\rx").subject, "Old Mac");
    EXPECT_EQ(MIMEParser::headers("Subject: Old Mac\r\rx")["Subject"], "Old Mac");
}

TEST(MIMEParserContent, LeafIsBodyOrAttachment) {
    struct Row {
        std::string part;
        std::string filename; // empty: body text
    } rows[] = {
        {"Content-Type: text/plain\nContent-Disposition: ATTACHMENT\n\nx", "attachment-1.txt"},
        {"Content-Type: text/plain; name=notes.txt\n\nx", ""},
        {"Content-Type: text/plain\nContent-Disposition: inline; filename=a.txt\n\nx", ""},
        {"Content-Type: text/calendar\n\nBEGIN:VCALENDAR", "attachment-1.ics"},
        {"Content-Type: text/csv; name=\"t.csv\"\n\na,b", "t.csv"},
        {"Content-Type: text/x-vcard\n\nx", "attachment-1"},
        {"Content-Type: IMAGE/JPEG\n\nx", "attachment-1.jpg"},
        {"Content-Type: x-message/rfc822\n\nx", "attachment-1.eml"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.part);
        auto message = MIMEParser::parse(multipart("mixed", {row.part}));
        EXPECT_EQ(message.textBody.has_value(), row.filename.empty());
        EXPECT_EQ(names(message.attachments), row.filename.empty()
                                                  ? std::vector<std::string>{}
                                                  : std::vector<std::string>{row.filename});
    }
}

TEST(MIMEParserContent, AttachmentsAreNumberedAndDecoded) {
    const std::string octets =
        "Content-Type: application/octet-stream\nContent-Transfer-Encoding: ";
    auto message = MIMEParser::parse(multipart(
        "mixed", {octets + "base64\n\nAAEC\n/w==", octets + "quoted-printable\n\na=3Db=\n c",
                  octets + "8bit\n\na=3Db", octets + "base64\n\na",
                  multipart("alternative", {kPlainA, kPNG})}));
    ASSERT_EQ(message.attachments.size(), 5u);
    EXPECT_EQ(message.attachments[0].data, std::string_view("\x00\x01\x02\xFF", 4));
    EXPECT_EQ(message.attachments[1].data, "a=b c");
    EXPECT_EQ(message.attachments[2].data, "a=3Db");
    EXPECT_EQ(message.attachments[3].data, "");
    // Inside the alternative its own count starts again, but the ids run on.
    EXPECT_EQ(message.attachments[4].filename, "attachment-1.png");
    EXPECT_EQ(message.attachments[4].id, 4);
}

TEST(MIMEParserContent, InlineImagesAndFileAttachments) {
    const std::pair<std::string, bool> rows[] = {
        {"", false},
        {"Content-ID: <i@x>\n", true},
        {"Content-Disposition: INLINE\n", true},
        {"Content-Disposition: attachment\nContent-ID: <i@x>\n", false},
        {"Content-Disposition: x-other\nContent-ID: <i@x>\n", false}};
    for (const auto& [headers, isInline] : rows) {
        auto message = MIMEParser::parse(
            multipart("mixed", {"Content-Type: image/png\n" + headers + "\npng"}));
        ASSERT_EQ(message.attachments.size(), 1u) << headers;
        EXPECT_EQ(message.attachments[0].isInline, isInline) << headers;
    }

    // Only an inline image the HTML shows is no file of its own.
    const std::string html = "Content-Type: text/html\n\n<img src=\"cid:logo@x\">";
    const std::string logo = "Content-Type: image/png\nContent-ID: <logo@x>\n";
    auto used = MIMEParser::parse(multipart(
        "related", {html, logo + "\npng", "Content-Type: image/png\nContent-ID: <unused@x>\n\np"}));
    ASSERT_EQ(used.attachments.size(), 2u);
    EXPECT_EQ(used.attachments[0].contentID, "logo@x");
    ASSERT_EQ(used.fileAttachments().size(), 1u);
    EXPECT_EQ(used.fileAttachments()[0].contentID, "unused@x");
    EXPECT_EQ(
        MIMEParser::parse(multipart("related", {kPlainA, logo + "\npng"})).fileAttachments().size(),
        1u);
    EXPECT_EQ(MIMEParser::parse(
                  multipart("related", {html, logo + "Content-Disposition: attachment\n\npng"}))
                  .fileAttachments()
                  .size(),
              1u);
}

TEST(MIMEParserContent, DisplayFields) {
    auto message = MIMEParser::parse("From: =?UTF-8?Q?Andr=C3=A9?= <andre@example.com>\n"
                                     "To: \"Doe, Jane\" <jane@x>, bob@y\n"
                                     "Cc: c@z\n"
                                     "Reply-To: r@z\n"
                                     "Subject:  =?UTF-8?B?aGk=?=\n"
                                     "  =?UTF-8?B?dGhlcmU=?=  \n"
                                     "Subject: second\n"
                                     "Date: Tue, 5 Mar 2024 10:00:00 +0100 (CET)\n"
                                     "Message-ID:  <abc@host> \n"
                                     "\n"
                                     "body\n");
    EXPECT_EQ(message.subject, "hithere");
    EXPECT_EQ(message.from, (std::vector<MailAddress>{{"André", "andre@example.com"}}));
    EXPECT_EQ(message.to, (std::vector<MailAddress>{{"Doe, Jane", "jane@x"}, {"", "bob@y"}}));
    EXPECT_EQ(message.cc, (std::vector<MailAddress>{{"", "c@z"}}));
    EXPECT_EQ(message.replyTo, (std::vector<MailAddress>{{"", "r@z"}}));
    ASSERT_TRUE(message.date);
    EXPECT_EQ(unixSeconds(*message.date), 1709629200);
    EXPECT_EQ(message.messageID, "abc@host");

    auto bare = MIMEParser::parse("X-Other: 1\nDate: 2024-03-05\n\nbody");
    EXPECT_EQ(bare.subject, "");
    EXPECT_TRUE(bare.from.empty());
    EXPECT_EQ(bare.date, std::nullopt);
    EXPECT_EQ(bare.messageID, std::nullopt);
}

TEST(MIMEParserContent, HeadersOnlyAndLooksValidReadWithinTheCap) {
    const std::string filler = "X-Fill: " + std::string(MIMEParser::kHeaderScanLimit, 'x') + "\n";
    auto early = MIMEParser::headers("Subject: s\n" + filler + "From: late@x\n\nbody");
    EXPECT_EQ(early["Subject"], "s");
    EXPECT_EQ(early["From"], std::nullopt);
    EXPECT_EQ(MIMEParser::headers("A: 1\n\nB: 2\n").fields,
              (std::vector<MIMEHeaderField>{{"A", "1"}}));

    const std::pair<std::string, bool> rows[] = {
        {"", false},
        {"Subject: x", true},
        {"RECEIVED: from x\n\n", true},
        {"Return-Path: <a@b>\n\n", true},
        {"message-id: <a@b>\n\n", true},
        {"X-Foo: bar\nContent-Type: text/plain\n\n", false},
        {"X-Foo: bar\n\nFrom: a@b\n", false},
        {"Hello world, this is not mail.\n", false},
        {std::string("\x89PNG\r\n\x1a\n\0\0", 10), false},
        {filler + "From: a@b\n\n", false}};
    for (const auto& [input, valid] : rows) {
        EXPECT_EQ(MIMEParser::looksValid(input), valid) << input.substr(0, 40);
    }
}

} // namespace
} // namespace qs
