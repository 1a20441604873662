#include "mime/MIMEHeaders.h"
#include "mime/MIMEParser.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

// A part's type as written, or the default of where it stands (a digest's is a message).
TEST(MIMEParserStructure, ContentTypeIsParsedOrDefaulted) {
    const ContentType text = ContentType::defaultText();
    const struct {
        std::string header;
        ContentType fallback;
        ContentType expected;
    } rows[] = {
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
    auto empty = MIMEParser::parse("");
    EXPECT_TRUE(empty.headers.empty());
    EXPECT_EQ(empty.root.contentType, text);
}

// The children's bodies, the root's body, the text and the attachments' names and types.
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
        // A digest's children default to messages.
        {"Content-Type: multipart/digest; boundary=d\n\n--d\n\nSubject: inner\n\nhello\n"
         "--d\nContent-Type: text/plain\n\nplain\n--d--\n",
         "Subject: inner\n\nhello|plain| root: text:plain files:attachment-1.eml=message/rfc822,"},
        // An enclosed message is not descended into.
        {"Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: message/rfc822\n\n"
         "Content-Type: multipart/mixed; boundary=i\n\n--i\n\nin\n--i--\n--o--\n",
         "Content-Type: multipart/mixed; boundary=i\n\n--i\n\nin\n--i--| root: text:- "
         "files:attachment-1.eml=message/rfc822,"},
        {"Content-Type: multipart/mixed; boundary=right\n\n--wrong\n\ntext\n",
         " root: text:- files:"},
        // Without a boundary a multipart stays a leaf, and no text.
        {"Content-Type: multipart/mixed\n\n--x\n\ntext\n--x--\n",
         " root:--x\n\ntext\n--x--\n text:- files:"},
        {"Content-Type: multipart/mixed; boundary=b\n\n--b\n\nfirst\n--b\n\nlast\n",
         "first|last\n| root: text:first\n\nlast\n files:"},
    };
    for (const auto& [message, expected] : rows) {
        EXPECT_EQ(outline(MIMEParser::parse(message)), expected) << message;
    }
}

// `levels` multiparts nested one in the next (all with one boundary when `same`), with a text
// leaf in the innermost.
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
    static_assert(MIMEParser::kMaxDepth == 40);
    auto deepest = MIMEParser::parse(nested(41, false));
    EXPECT_EQ(depth(deepest.root), MIMEParser::kMaxDepth);
    EXPECT_EQ(deepest.textBody, std::nullopt);
    EXPECT_EQ(MIMEParser::parse(nested(40, false)).textBody, "deep");
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

TEST(MIMEHeaders, ParseGivesTheFieldsInOrder) {
    struct Row {
        std::string input;
        std::vector<MIMEHeaderField> fields;
    } rows[] = {
        {"", {}},
        {"Subject: a\n b\n", {{"Subject", "a b"}}},
        {"Subject: a\r\n\t\t b  \r\nTo: x\r\n", {{"Subject", "a b"}, {"To", "x"}}},
        {" x\nFrom: a\n", {{"From", "a"}}},
        {"Bad Name: v\n more\nTo: t\n", {{"To", "t"}}},
        {"garbage\nTo: t\n", {{"To", "t"}}},
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
}

TEST(MIMEHeaders, LookupIgnoresLetterCaseAndGivesTheFirstMatch) {
    auto headers = MIMEHeaders::parse("received: one\nRECEIVED: two\nSubject: s\nX-@: a\n");
    EXPECT_EQ(headers["Received"], "one");
    EXPECT_EQ(headers["X-Missing"], std::nullopt);
    EXPECT_EQ(headers.all("Received"), (std::vector<std::string>{"one", "two"}));
    EXPECT_TRUE(headers.contains("SUBJECT"));
    ASSERT_NE(headers.first("subject"), nullptr);
    EXPECT_EQ(*headers.first("subject"), "s");
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
        {"A: 1\r\nB: 2\r\n", "A: 1\r\nB: 2\r\n", ""},
        {"A: 1\n\n", "A: 1\n", ""},
        {"A: 1\n\rX\n", "A: 1\n\rX\n", ""},
        {"A: 1\n\r", "A: 1\n\r", ""},
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
        {"just text\n", {}},
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
