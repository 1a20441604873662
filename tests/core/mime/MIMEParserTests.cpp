#include "mime/MIMEHeaders.h"
#include "mime/MIMEParser.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

std::string multipart(std::string_view subtype, const std::vector<std::string>& parts) {
    std::string boundary = "b" + std::string(subtype);
    std::string message =
        "Content-Type: multipart/" + std::string(subtype) + "; boundary=\"" + boundary + "\"\n\n";
    for (const auto& part : parts) {
        message += "--" + boundary + "\n" + part + "\n";
    }
    return message + "--" + boundary + "--\n";
}

std::string names(const std::vector<MailAttachment>& attachments) {
    std::string out;
    for (const auto& attachment : attachments) {
        out += (out.empty() ? "" : ",") + attachment.filename;
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
        std::string attachments = "";
    } rows[] = {
        {"alternative: first text, last HTML",
         multipart("alternative", {kPlainA, kPlainB, kHTMLA, kHTMLB}), "plain A", "<p>html B</p>",
         "plain A"},
        {"mixed collects all in order", multipart("mixed", {kPlainA, kHTMLA, kPlainB, kHTMLB}),
         "plain A\n\nplain B", "<p>html A</p><hr><p>html B</p>", "plain A\n\nplain B"},
        {"no text parts", multipart("mixed", {"Content-Type: image/gif\n\nGIF"}), std::nullopt,
         std::nullopt, "", "attachment-1.gif"},
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
         multipart("alternative", {multipart("related", {kHTMLA, kPNG}), kPlainA}), "plain A",
         "<p>html A</p>", "plain A", "attachment-1.png"},
        {"lines ending in CR alone", "From: a@example.org\rSubject: Old Mac\r\rfirst\rsecond\r",
         "first\nsecond\n", std::nullopt, "first\nsecond\n"},
        {"CR alone in a multipart",
         "Content-Type: multipart/mixed; boundary=b\r\r--b\rContent-Type: text/plain\r\rpart\r"
         "--b--\r",
         "part", std::nullopt, "part"},
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
    // part -> attachment name, or none for body text
    const std::pair<std::string, std::string> rows[] = {
        {"Content-Type: text/plain\nContent-Disposition: ATTACHMENT\n\nx", "attachment-1.txt"},
        {"Content-Type: text/plain; name=notes.txt\n\nx", ""},
        {"Content-Type: text/plain\nContent-Disposition: inline; filename=a.txt\n\nx", ""},
        {"Content-Type: text/calendar\n\nBEGIN:VCALENDAR", "attachment-1.ics"},
        {"Content-Type: text/csv; name=\"t.csv\"\n\na,b", "t.csv"},
        {"Content-Type: text/x-vcard\n\nx", "attachment-1"},
        {"Content-Type: IMAGE/JPEG\n\nx", "attachment-1.jpg"},
        {"Content-Type: x-message/rfc822\n\nx", "attachment-1.eml"},
    };
    for (const auto& [part, filename] : rows) {
        SCOPED_TRACE(part);
        auto message = MIMEParser::parse(multipart("mixed", {part}));
        EXPECT_EQ(message.textBody.has_value(), filename.empty());
        EXPECT_EQ(names(message.attachments), filename);
    }
}

TEST(MIMEParserContent, AttachmentsAreNumberedAndDecoded) {
    const std::string octets =
        "Content-Type: application/octet-stream\nContent-Transfer-Encoding: ";
    auto message = MIMEParser::parse(
        multipart("mixed", {octets + "base64\n\nAAEC\n/w==", octets + "8bit\n\na=3Db",
                            multipart("alternative", {kPlainA, kPNG})}));
    ASSERT_EQ(message.attachments.size(), 3u);
    EXPECT_EQ(message.attachments[0].data, std::string_view("\x00\x01\x02\xFF", 4));
    EXPECT_EQ(message.attachments[1].data, "a=3Db");
    // Inside the alternative its own count starts again, but the ids run on.
    EXPECT_EQ(message.attachments[2].filename, "attachment-1.png");
    EXPECT_EQ(message.attachments[2].id, 2);
}

TEST(MIMEParserContent, InlineImagesAndFileAttachments) {
    // image headers -> inline, and how many files beside HTML that shows cid:i@x
    const std::tuple<std::string, bool, size_t> rows[] = {
        {"", false, 1},
        {"Content-ID: <i@x>\n", true, 0},
        {"Content-ID: <unused@x>\n", true, 1},
        {"Content-Disposition: INLINE\n", true, 1},
        {"Content-Disposition: attachment\nContent-ID: <i@x>\n", false, 1},
        {"Content-Disposition: x-other\nContent-ID: <i@x>\n", false, 1}};
    const std::string html = "Content-Type: text/html\n\n<img src=\"cid:i@x\">";
    for (const auto& [headers, isInline, files] : rows) {
        SCOPED_TRACE(headers);
        auto message = MIMEParser::parse(
            multipart("related", {html, "Content-Type: image/png\n" + headers + "\npng"}));
        ASSERT_EQ(message.attachments.size(), 1u);
        EXPECT_EQ(message.attachments[0].isInline, isInline);
        EXPECT_EQ(message.fileAttachments().size(), files);
    }
    const std::string shown = "Content-Type: image/png\nContent-ID: <i@x>\n\npng";
    EXPECT_EQ(MIMEParser::parse(multipart("related", {kPlainA, shown})).fileAttachments().size(),
              1u);
}

TEST(MIMEParserContent, DisplayFields) {
    auto message = MIMEParser::parse("From: A <a@x>\nTo: t@x, u@y\nCc: c@z\nReply-To: r@z\n"
                                     "Subject:  =?UTF-8?B?aGk=?=\n  =?UTF-8?B?dGhlcmU=?=  \n"
                                     "Subject: second\nDate: Tue, 5 Mar 2024 10:00:00 +0100\n"
                                     "Message-ID:  <abc@host> \n\nbody\n");
    EXPECT_EQ(message.subject, "hithere");
    EXPECT_EQ(message.from, (std::vector<MailAddress>{{"A", "a@x"}}));
    EXPECT_EQ(message.to, (std::vector<MailAddress>{{"", "t@x"}, {"", "u@y"}}));
    EXPECT_EQ(message.cc, (std::vector<MailAddress>{{"", "c@z"}}));
    EXPECT_EQ(message.replyTo, (std::vector<MailAddress>{{"", "r@z"}}));
    ASSERT_TRUE(message.date);
    EXPECT_EQ(unixSeconds(*message.date), 1709629200);
    EXPECT_EQ(message.messageID, "abc@host");

    auto bare = MIMEParser::parse("X-Other: 1\nDate: 2024-03-05\n\nbody");
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
        {"X-Foo: bar\nContent-Type: text/plain\n\n", false},
        {"X-Foo: bar\n\nFrom: a@b\n", false},
        {filler + "From: a@b\n\n", false}};
    for (const auto& [input, valid] : rows) {
        EXPECT_EQ(MIMEParser::looksValid(input), valid) << input.substr(0, 40);
    }
}

TEST(MIMEParserStructure, ContentTypeIsParsedOrDefaulted) {
    const ContentType text = ContentType::defaultText();
    const struct {
        std::string header;
        ContentType fallback;
        ContentType expected;
    } rows[] = {{"Content-Type:  TEXT / HTML ; Charset=\"UTF-8\"",
                 text,
                 {"text", "html", {{"charset", "UTF-8"}}}},
                {"Content-Type: garbage; charset=koi8-r", text, text},
                {"Content-Type: a/b/c", text, text},
                {"Content-Type: /html", text, text},
                {"Content-Type: image/png\nContent-Type: text/html", text, {"image", "png", {}}},
                {"X-Other: 1", ContentType::defaultMessage(), ContentType::defaultMessage()}};
    for (const auto& row : rows) {
        auto part = MIMEParser::parsePart(ByteSlice(row.header + "\n\nbody"), 1, row.fallback);
        EXPECT_EQ(part.contentType, row.expected) << row.header;
    }
    auto empty = MIMEParser::parse("");
    EXPECT_TRUE(empty.headers.empty());
    EXPECT_EQ(empty.root.contentType, text);
}

std::string outline(const ParsedMessage& message) {
    std::string out;
    for (const auto& child : message.root.children) {
        out += std::string(child.body.view()) + (child.children.empty() ? "|" : "+|");
    }
    out += " root:" + std::string(message.root.body.view()) +
           " text:" + message.textBody.value_or("-") + " files:";
    for (const auto& attachment : message.attachments) {
        out += attachment.filename + "=" + attachment.mimeType + ",";
    }
    return out;
}

TEST(MIMEParserStructure, MultipartsSplitIntoChildren) {
    const std::pair<std::string, std::string> rows[] = {
        // Preamble dropped, CR LF line ends, a child without headers is text.
        {"Content-Type: multipart/mixed; boundary=\"xx\"\r\n\r\npreamble\r\n--xx\r\n"
         "Content-Type: text/plain\r\n\r\none\r\n--xx\r\n\r\ntwo\r\n--xx--\r\n",
         "one|two| root: text:one\n\ntwo files:"},
        {"Content-Type: multipart/digest; boundary=d\n\n--d\n\nSubject: inner\n\nhello\n"
         "--d\nContent-Type: text/plain\n\nplain\n--d--\n",
         "Subject: inner\n\nhello|plain| root: text:plain files:attachment-1.eml=message/rfc822,"},
        {"Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: message/rfc822\n\n"
         "Content-Type: multipart/mixed; boundary=i\n\n--i\n\nin\n--i--\n--o--\n",
         "Content-Type: multipart/mixed; boundary=i\n\n--i\n\nin\n--i--| root: text:- "
         "files:attachment-1.eml=message/rfc822,"},
        {"Content-Type: multipart/mixed; boundary=right\n\n--wrong\n\ntext\n",
         " root: text:- files:"},
        // Without a boundary a multipart stays a leaf, and no text.
        {"Content-Type: multipart/mixed\n\n--x\n\ntext\n--x--\n",
         " root:--x\n\ntext\n--x--\n text:- files:"},
    };
    for (const auto& [message, expected] : rows) {
        EXPECT_EQ(outline(MIMEParser::parse(message)), expected) << message;
    }
}

std::string nested(int levels, bool same) {
    std::string message, closing;
    for (int i = 0; i < levels; ++i) {
        std::string b = same ? "same" : "b" + std::to_string(i);
        message += "Content-Type: multipart/mixed; boundary=\"" + b + "\"\n\n--" + b + "\n";
        closing = "--" + b + "--\n" + closing;
    }
    return message + "Content-Type: text/plain\n\ndeep\n" + closing;
}

int depth(const MIMEPart& root) {
    int depth = 0;
    for (const MIMEPart* part = &root; !part->children.empty(); part = &part->children[0]) {
        ++depth;
    }
    return depth;
}

TEST(MIMEParserStructure, NestingStopsSplittingAtTheDepthLimit) {
    auto deepest = MIMEParser::parse(nested(MIMEParser::kMaxDepth + 1, false));
    EXPECT_EQ(depth(deepest.root), MIMEParser::kMaxDepth);
    EXPECT_EQ(deepest.textBody, std::nullopt);
    EXPECT_EQ(MIMEParser::parse(nested(MIMEParser::kMaxDepth, false)).textBody, "deep");
    // Hundreds of levels reusing one boundary: each level re-splits the same bytes.
    EXPECT_LE(depth(MIMEParser::parse(nested(500, true)).root), MIMEParser::kMaxDepth);
}

TEST(MIMEParserStructure, ComputedFieldsAreDerivedFromTheHeaders) {
    const std::pair<std::string, std::string> rows[] = {
        // part -> transfer encoding | filename | content ID | decoded text
        {"\nhello", "7bit|-|-|hello"},
        {"Content-Transfer-Encoding:  BASE64 \n\naGVs\nbG8=\n", "base64|-|-|hello"},
        {"Content-Type: text/plain; name=b.txt\n"
         "Content-Disposition: attachment; filename=\"a.txt\"\n\n",
         "7bit|a.txt|-|"},
        {"Content-Type: text/plain; name=b.txt\nContent-Disposition: attachment; filename=\"\"\n\n",
         "7bit|b.txt|-|"},
        {"Content-Type: image/png; name=\"=?UTF-8?Q?caf=C3=A9.png?=\"\n\n", "7bit|café.png|-|"},
        {"Content-ID: \t< img1@x >\n\n", "7bit|-|img1@x|"}};
    for (const auto& [text, expected] : rows) {
        auto part = MIMEParser::parsePart(ByteSlice(text), 1, ContentType::defaultText());
        EXPECT_EQ(part.transferEncoding() + "|" + part.filename().value_or("-") + "|" +
                      part.contentID().value_or("-") + "|" + part.decodedText(),
                  expected)
            << text;
    }
    // Unencoded bodies are handed out without a copy.
    auto plain =
        MIMEParser::parsePart(ByteSlice(std::string("\nabc")), 0, ContentType::defaultText());
    EXPECT_EQ(plain.decodedBody().data(), plain.body.data());
}

TEST(MIMEHeaders, ParseInOrderAndLookUpIgnoringCase) {
    struct Row {
        std::string input;
        std::vector<MIMEHeaderField> fields;
    } rows[] = {
        {"", {}},
        {"Subject: a\r\n\t\t b  \r\nTo: x\r\n", {{"Subject", "a b"}, {"To", "x"}}},
        {" x\nFrom: a\n", {{"From", "a"}}},
        {"Bad Name: v\n more\nTo: t\n", {{"To", "t"}}},
        {": v\n", {}},
        {"Subject  : x", {{"Subject", "x"}}},
        {"Date: 10:00:01\nX-Empty:\n", {{"Date", "10:00:01"}, {"X-Empty", ""}}},
        {"Received: a\nReceived: b\n", {{"Received", "a"}, {"Received", "b"}}},
        // 8-bit header bytes that aren't UTF-8 read as Windows-1252, its holes repaired.
        {"Subject: caf\xE9 \x80\n", {{"Subject", "caf\xC3\xA9 \xE2\x82\xAC"}}},
        {"Subject: a\x81\xE9\n", {{"Subject", "a\xEF\xBF\xBD\xEF\xBF\xBD"}}},
        {"Subject: \xC3\xA9t\xC3\xA9\n", {{"Subject", "\xC3\xA9t\xC3\xA9"}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.input);
        EXPECT_EQ(MIMEHeaders::parse(row.input).fields, row.fields);
    }
    auto headers = MIMEHeaders::parse("received: one\nRECEIVED: two\nX-@: a\n");
    EXPECT_EQ(headers["Received"], "one");
    EXPECT_EQ(headers["X-Missing"], std::nullopt);
    EXPECT_EQ(headers.all("Received"), (std::vector<std::string>{"one", "two"}));
    // '@' and '`' differ by the case bit alone.
    EXPECT_EQ(headers["X-`"], std::nullopt);
    EXPECT_EQ(headers["x-@"], "a");
}

TEST(MIMEParserSplit, HeaderBodyAtTheFirstBlankLine) {
    struct Row {
        std::string input, head, body;
    } rows[] = {
        {"", "", ""},
        {"\r\nbody", "", "body"},
        {"A: 1\nB: 2\n\nbody\n\nmore", "A: 1\nB: 2\n", "body\n\nmore"},
        {"A: 1\r\n\r\nbody\r\n", "A: 1\r\n", "body\r\n"},
        {"A: 1\n\r\nbody", "A: 1\n", "body"},
        {"A: 1\n\n", "A: 1\n", ""},
        {"A: 1\n\rX\n", "A: 1\n\rX\n", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.input);
        auto split = MIMEParser::splitHeaderBody(row.input);
        EXPECT_EQ(split.head, row.head);
        EXPECT_EQ(split.body, row.body);
    }
}

TEST(MIMEParserSplit, MultipartPiecesBetweenDelimiters) {
    struct Row {
        std::string body;
        std::vector<std::string> pieces;
        std::string boundary = "b";
    } rows[] = {
        {"--b\r\ntext\r\n--b--", {"text"}},
        {"pre\n--b\na\n--b\nsecond\nline\n--b--\nepilogue\n--b\nnot a part\n",
         {"a", "second\nline"}},
        {"--bc\nx\n--b\ny\n--bc\n--b--", {"y\n--bc"}},
        {"--b  \t\r\nx\r\n--b \r\n--b-- \r\n", {"x", ""}},
        {"--b\nx\n--b - -\nepilogue", {"x"}},
        {"--b\nx\n--b--garbage\ny", {"x"}},
        {"--b\nA\n--b-x\n--b x\n", {"A\n--b-x\n--b x\n"}},
        {"--b\na\n--b\nlast\n", {"a", "last\n"}},
        {"--b\nA\n--b", {"A"}},
        {"x--b\ny\nx--b--\n", {}},
        {"--b--\n--b\nx\n", {}},
        {"--b\nA\r\r\n\n--b--", {"A\r\r\n"}},
        {"--b\nA\r\r\n--b--", {"A\r"}},
        {"--=_(.*) +?x\r\nA\r\n--=_(.*) +?x--\r\n", {"A"}, "=_(.*) +?x"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.body);
        auto pieces = MIMEParser::splitMultipart(row.body, row.boundary);
        EXPECT_EQ(std::vector<std::string>(pieces.begin(), pieces.end()), row.pieces);
    }
}

} // namespace
} // namespace qs
