#include "mime/MIMEParser.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

// The same message with CR LF line ends.
std::string crlf(std::string_view lf) {
    std::string out;
    for (char c : lf) {
        if (c == '\n') {
            out += '\r';
        }
        out += c;
    }
    return out;
}

TEST(MIMEParserStructure, EmptyInputYieldsADefaultPart) {
    auto message = MIMEParser::parse("");
    EXPECT_TRUE(message.headers.empty());
    EXPECT_EQ(message.root.contentType, ContentType::defaultText());
    EXPECT_EQ(message.subject, "");
    EXPECT_EQ(message.date, std::nullopt);
    EXPECT_TRUE(message.from.empty());
}

// A part's type as written, or the default of where it stands (a digest's is a message).
TEST(MIMEParserStructure, ContentTypeIsParsedOrDefaulted) {
    const ContentType text = ContentType::defaultText();
    const struct {
        std::string header;
        ContentType fallback;
        ContentType expected;
    } rows[] = {
        {"Content-Type: text/html", text, {"text", "html", {}}},
        {"Content-Type:  TEXT / HTML ; Charset=\"UTF-8\"",
         text,
         {"text", "html", {{"charset", "UTF-8"}}}},
        {"Content-Type: garbage; charset=koi8-r", text, text},
        {"Content-Type: a/b/c", text, text},
        {"Content-Type: /html", text, text},
        {"Content-Type: image/png\nContent-Type: text/html", text, {"image", "png", {}}},
        {"X-Other: 1", text, text},
        {"Content-Type: garbage", ContentType::defaultMessage(), ContentType::defaultMessage()}};
    for (const auto& row : rows) {
        auto part = MIMEParser::parsePart(ByteSlice(row.header + "\n\nbody"), 1, row.fallback);
        EXPECT_EQ(part.contentType, row.expected) << row.header;
    }
}

TEST(MIMEParserStructure, MultipartIsSplitIntoChildrenAndLosesItsBody) {
    auto message = MIMEParser::parse(crlf("Content-Type: multipart/mixed; boundary=\"xx\"\n"
                                          "\n"
                                          "preamble\n"
                                          "--xx\n"
                                          "Content-Type: text/plain\n"
                                          "\n"
                                          "one\n"
                                          "--xx\n"
                                          "\n"
                                          "two\n"
                                          "--xx--\n"));
    const MIMEPart& root = message.root;
    EXPECT_TRUE(root.body.empty());
    ASSERT_EQ(root.children.size(), 2u);
    EXPECT_EQ(root.children[0].body, "one");
    EXPECT_EQ(root.children[1].body, "two");
    EXPECT_EQ(root.children[1].contentType, ContentType::defaultText());
    EXPECT_TRUE(root.children[1].headers.empty());
    EXPECT_EQ(message.textBody, "one\n\ntwo");
}

TEST(MIMEParserStructure, DigestChildrenDefaultToMessages) {
    auto message = MIMEParser::parse("Content-Type: multipart/digest; boundary=d\n\n"
                                     "--d\n\nSubject: inner\n\nhello\n"
                                     "--d\nContent-Type: text/plain\n\nplain\n--d--\n");
    ASSERT_EQ(message.root.children.size(), 2u);
    EXPECT_EQ(message.root.children[0].contentType.mimeType(), "message/rfc822");
    ASSERT_EQ(message.attachments.size(), 1u);
    EXPECT_EQ(message.attachments[0].filename, "attachment-1.eml");
    EXPECT_EQ(message.attachments[0].mimeType, "message/rfc822");
    EXPECT_EQ(message.attachments[0].data, "Subject: inner\n\nhello");
    EXPECT_EQ(message.textBody, "plain");
}

TEST(MIMEParserStructure, EnclosedMessageIsNotDescendedInto) {
    auto message = MIMEParser::parse("Content-Type: multipart/mixed; boundary=o\n\n"
                                     "--o\nContent-Type: message/rfc822\n\n"
                                     "Content-Type: multipart/mixed; boundary=i\n\n"
                                     "--i\n\ninner text\n--i--\n"
                                     "--o--\n");
    ASSERT_EQ(message.root.children.size(), 1u);
    EXPECT_TRUE(message.root.children[0].children.empty());
    EXPECT_EQ(message.textBody, std::nullopt);
    ASSERT_EQ(message.attachments.size(), 1u);
    EXPECT_EQ(message.attachments[0].filename, "attachment-1.eml");
}

TEST(MIMEParserStructure, WrongBoundaryYieldsNoChildrenAndNoText) {
    auto message = MIMEParser::parse("Content-Type: multipart/mixed; boundary=right\n\n"
                                     "--wrong\n\ntext\n--wrong--\n");
    EXPECT_TRUE(message.root.children.empty());
    EXPECT_TRUE(message.root.body.empty());
    EXPECT_EQ(message.textBody, std::nullopt);
    EXPECT_EQ(message.htmlBody, std::nullopt);
    EXPECT_TRUE(message.attachments.empty());
}

TEST(MIMEParserStructure, MultipartWithoutBoundaryStaysALeafWithItsBody) {
    auto message = MIMEParser::parse("Content-Type: multipart/mixed\n\n--x\n\ntext\n--x--\n");
    EXPECT_TRUE(message.root.children.empty());
    EXPECT_EQ(message.root.body, "--x\n\ntext\n--x--\n");
    EXPECT_EQ(message.textBody, std::nullopt);
    EXPECT_TRUE(message.attachments.empty());
}

TEST(MIMEParserStructure, MissingClosingDelimiterKeepsTheLastPart) {
    auto message = MIMEParser::parse("Content-Type: multipart/mixed; boundary=b\n\n"
                                     "--b\n\nfirst\n--b\n\nlast\n");
    ASSERT_EQ(message.root.children.size(), 2u);
    EXPECT_EQ(message.textBody, "first\n\nlast\n");
}

// Builds `levels` multiparts nested one in the next, with a text leaf in the innermost.
std::string nested(int levels) {
    std::string message;
    for (int i = 0; i < levels; ++i) {
        message += "Content-Type: multipart/mixed; boundary=\"b" + std::to_string(i) + "\"\n\n--b" +
                   std::to_string(i) + "\n";
    }
    message += "Content-Type: text/plain\n\ndeep\n";
    for (int i = levels - 1; i >= 0; --i) {
        message += "--b" + std::to_string(i) + "--\n";
    }
    return message;
}

TEST(MIMEParserStructure, NestingStopsSplittingAtTheDepthLimit) {
    static_assert(MIMEParser::kMaxDepth == 40);
    auto message = MIMEParser::parse(nested(41));
    const MIMEPart* part = &message.root;
    int depth = 0;
    while (!part->children.empty()) {
        ASSERT_EQ(part->children.size(), 1u);
        part = &part->children[0];
        ++depth;
    }
    EXPECT_EQ(depth, MIMEParser::kMaxDepth);
    EXPECT_EQ(part->contentType.type, "multipart");
    EXPECT_FALSE(part->body.empty());
    EXPECT_EQ(message.textBody, std::nullopt);

    // One level fewer fits: the text is reached.
    EXPECT_EQ(MIMEParser::parse(nested(40)).textBody, "deep");
}

TEST(MIMEParserStructure, HostileNestingIsBounded) {
    // Hundreds of levels reusing one boundary: each level re-splits the same bytes.
    std::string message;
    for (int i = 0; i < 500; ++i) {
        message += "Content-Type: multipart/mixed; boundary=same\n\n--same\n";
    }
    message += "\nx\n--same--\n";
    auto parsed = MIMEParser::parse(message);
    int depth = 0;
    for (const MIMEPart* part = &parsed.root; !part->children.empty(); part = &part->children[0]) {
        ++depth;
    }
    EXPECT_LE(depth, MIMEParser::kMaxDepth);
}

struct ComputedCase {
    const char* name;
    std::string part;
    std::string transferEncoding;
    std::optional<std::string> filename;
    std::optional<std::string> contentID;
    std::string decodedText;
};

TEST(MIMEParserStructure, ComputedFieldsAreDerivedFromTheHeaders) {
    const ComputedCase rows[] = {
        {"Defaults", "\nhello", "7bit", std::nullopt, std::nullopt, "hello"},
        {"Base64", "Content-Transfer-Encoding:  BASE64 \n\naGVs\nbG8=\n", "base64", std::nullopt,
         std::nullopt, "hello"},
        {"QuotedPrintableLatin1",
         "Content-Type: text/plain; charset=iso-8859-1\n"
         "Content-Transfer-Encoding: quoted-printable\n\ncaf=E9=\n!",
         "quoted-printable", std::nullopt, std::nullopt, "caf\xC3\xA9!"},
        {"UnknownEncodingKeepsBytes", "Content-Transfer-Encoding: x-uuencode\n\naGVsbG8=",
         "x-uuencode", std::nullopt, std::nullopt, "aGVsbG8="},
        {"DispositionFilenameFirst",
         "Content-Type: text/plain; name=b.txt\n"
         "Content-Disposition: attachment; filename=\"a.txt\"\n\n",
         "7bit", "a.txt", std::nullopt, ""},
        {"EmptyFilenameFallsBackToName",
         "Content-Type: text/plain; name=b.txt\n"
         "Content-Disposition: attachment; filename=\"\"\n\n",
         "7bit", "b.txt", std::nullopt, ""},
        {"EncodedWordName", "Content-Type: image/png; name=\"=?UTF-8?Q?caf=C3=A9.png?=\"\n\n",
         "7bit", "caf\xC3\xA9.png", std::nullopt, ""},
        {"ContentIDTrimmed", "Content-ID: \t< img1@x >\n\n", "7bit", std::nullopt, "img1@x", ""}};
    for (const ComputedCase& c : rows) {
        SCOPED_TRACE(c.name);
        auto part = MIMEParser::parsePart(ByteSlice(c.part), 1, ContentType::defaultText());
        EXPECT_EQ(part.transferEncoding(), c.transferEncoding);
        EXPECT_EQ(part.filename(), c.filename);
        EXPECT_EQ(part.contentID(), c.contentID);
        EXPECT_EQ(part.decodedText(), c.decodedText);
    }
}

TEST(MIMEParserStructure, DecodedBodySharesTheBufferUnlessEncoded) {
    auto plain =
        MIMEParser::parsePart(ByteSlice(std::string("\nabc")), 0, ContentType::defaultText());
    EXPECT_EQ(plain.decodedBody().data(), plain.body.data());
    auto encoded =
        MIMEParser::parsePart(ByteSlice(std::string("Content-Transfer-Encoding: base64\n\n!!!")), 0,
                              ContentType::defaultText());
    EXPECT_EQ(encoded.decodedBody(), "");
}

} // namespace
} // namespace qs
