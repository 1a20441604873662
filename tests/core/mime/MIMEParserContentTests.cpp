#include "mime/MIMEParser.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

// A multipart body with boundary "b" around `parts` (each a header block, a blank line and a
// body), under `headers`.
std::string multipart(std::string_view subtype, const std::vector<std::string>& parts,
                      std::string_view headers = "") {
    std::string message = std::string(headers) + "Content-Type: multipart/" + std::string(subtype) +
                          "; boundary=\"b" + std::string(subtype) + "\"\n\n";
    for (const auto& part : parts) {
        message += "--b" + std::string(subtype) + "\n" + part + "\n";
    }
    return message + "--b" + std::string(subtype) + "--\n";
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

// Which text and HTML a message's body yields, and the plain text made from them.
struct BodyCase {
    const char* name;
    std::string message;
    std::optional<std::string> textBody;
    std::optional<std::string> htmlBody;
    std::string plainText;
};

void PrintTo(const BodyCase& c, std::ostream* out) {
    *out << c.name;
}

class BodySelection : public testing::TestWithParam<BodyCase> {};

TEST_P(BodySelection, PicksTextAndHTML) {
    const auto& c = GetParam();
    auto message = MIMEParser::parse(c.message);
    EXPECT_EQ(message.textBody, c.textBody);
    EXPECT_EQ(message.htmlBody, c.htmlBody);
    EXPECT_EQ(message.plainText(), c.plainText);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BodySelection,
    testing::Values(
        BodyCase{"AlternativeYieldsBoth", multipart("alternative", {kPlainA, kHTMLA}), "plain A",
                 "<p>html A</p>", "plain A"},
        BodyCase{"AlternativeKeepsFirstTextAndLastHTML",
                 multipart("alternative", {kPlainA, kPlainB, kHTMLA, kHTMLB}), "plain A",
                 "<p>html B</p>", "plain A"},
        BodyCase{"MixedCollectsAllInOrder", multipart("mixed", {kPlainA, kHTMLA, kPlainB, kHTMLB}),
                 "plain A\n\nplain B", "<p>html A</p><hr><p>html B</p>", "plain A\n\nplain B"},
        BodyCase{"NoTextPartsMeansNoBodies", multipart("mixed", {"Content-Type: image/gif\n\nGIF"}),
                 std::nullopt, std::nullopt, ""},
        BodyCase{"EnrichedTextIsNotConverted",
                 multipart("mixed", {"Content-Type: text/enriched\n\n<bold>x</bold>"}),
                 "<bold>x</bold>", std::nullopt, "<bold>x</bold>"},
        BodyCase{"PlainTextKeepsNonBlankText",
                 multipart("alternative", {"Content-Type: text/plain\n\n  hello\n", kHTMLA}),
                 "  hello\n", "<p>html A</p>", "  hello\n"},
        BodyCase{"BlankTextFallsBackToHTML",
                 multipart("alternative", {"Content-Type: text/plain\n\n \n\t\n", kHTMLA}),
                 " \n\t\n", "<p>html A</p>", "html A"},
        BodyCase{"HTMLOnly", "Content-Type: text/html\n\n<p>a</p><p>b</p>", std::nullopt,
                 "<p>a</p><p>b</p>", "a\n b"},
        BodyCase{"TextIsDecodedThroughItsCharset",
                 multipart("mixed",
                           {"Content-Type: text/plain; charset=koi8-r\n\n\xF0\xD2\xC9\xD7\xC5\xD4",
                            "Content-Type: text/html; charset=windows-1252\n"
                            "Content-Transfer-Encoding: quoted-printable\n\n=93q=94"}),
                 "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82", // Привет
                 "\xE2\x80\x9Cq\xE2\x80\x9D", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(MIMEParserContent, AlternativeTieBreaksLookAtWholeChildren) {
    // A related child holding HTML and an image counts as one HTML-producing child; a later
    // plain child produces no HTML and so doesn't displace it.
    std::string related = multipart("related", {kHTMLA, "Content-Type: image/png\n\npng"});
    auto message = MIMEParser::parse(multipart("alternative", {related, kPlainA}));
    EXPECT_EQ(message.textBody, "plain A");
    EXPECT_EQ(message.htmlBody, "<p>html A</p>");
    EXPECT_EQ(names(message.attachments), std::vector<std::string>{"attachment-1.png"});
}

struct LeafCase {
    const char* name;
    std::string part;
    bool isText;          // collected as body text
    std::string filename; // when an attachment
};

class LeafClassification : public testing::TestWithParam<LeafCase> {};

TEST_P(LeafClassification, DecidesBodyOrAttachment) {
    const auto& c = GetParam();
    auto message = MIMEParser::parse(multipart("mixed", {c.part}));
    if (c.isText) {
        EXPECT_TRUE(message.textBody.has_value());
        EXPECT_TRUE(message.attachments.empty());
    } else {
        EXPECT_EQ(message.textBody, std::nullopt);
        ASSERT_EQ(message.attachments.size(), 1u);
        EXPECT_EQ(message.attachments[0].filename, c.filename);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LeafClassification,
    testing::Values(
        LeafCase{"PlainWithDispositionAttachment",
                 "Content-Type: text/plain\nContent-Disposition: ATTACHMENT\n\nx", false,
                 "attachment-1.txt"},
        LeafCase{"PlainWithOnlyANameIsText", "Content-Type: text/plain; name=notes.txt\n\nx", true,
                 ""},
        LeafCase{"PlainInlineWithFilenameIsText",
                 "Content-Type: text/plain\nContent-Disposition: inline; filename=a.txt\n\nx", true,
                 ""},
        LeafCase{"EnrichedIsText", "Content-Type: text/enriched\n\n<bold>x</bold>", true, ""},
        LeafCase{"CalendarIsAnAttachment", "Content-Type: text/calendar\n\nBEGIN:VCALENDAR", false,
                 "attachment-1.ics"},
        LeafCase{"CSVIsAnAttachment", "Content-Type: text/csv; name=\"t.csv\"\n\na,b", false,
                 "t.csv"},
        LeafCase{"UnknownTextSubtypeHasNoExtension", "Content-Type: text/x-vcard\n\nx", false,
                 "attachment-1"},
        LeafCase{"NamelessPDF", "Content-Type: application/pdf\n\n%PDF", false, "attachment-1.pdf"},
        LeafCase{"UppercaseTypeGetsExtension", "Content-Type: IMAGE/JPEG\n\nx", false,
                 "attachment-1.jpg"},
        LeafCase{"AnyRFC822SubtypeIsEml", "Content-Type: x-message/rfc822\n\nx", false,
                 "attachment-1.eml"},
        LeafCase{"UnknownTypeWithoutExtension", "Content-Type: image/tiff\n\nx", false,
                 "attachment-1"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(MIMEParserContent, AlternativeAttachmentsAreRenumberedButKeepLocalNames) {
    std::string alternative = multipart("alternative", {kPlainA, "Content-Type: image/png\n\npng"});
    auto message = MIMEParser::parse(
        multipart("mixed", {"Content-Type: application/pdf\n\n%PDF", alternative}));
    ASSERT_EQ(message.attachments.size(), 2u);
    EXPECT_EQ(message.attachments[0].filename, "attachment-1.pdf");
    EXPECT_EQ(message.attachments[1].filename, "attachment-1.png");
    EXPECT_EQ(message.attachments[0].id, 0);
    EXPECT_EQ(message.attachments[1].id, 1);
}

TEST(MIMEParserContent, AttachmentDataIsDecodedForBase64AndQuotedPrintableOnly) {
    auto message = MIMEParser::parse(multipart(
        "mixed", {"Content-Type: application/octet-stream\nContent-Transfer-Encoding: base64\n\n"
                  "AAEC\n/w==",
                  "Content-Type: application/octet-stream\n"
                  "Content-Transfer-Encoding: quoted-printable\n\na=3Db=\n c",
                  "Content-Type: application/octet-stream\nContent-Transfer-Encoding: 8bit\n\n"
                  "a=3Db",
                  "Content-Type: application/octet-stream\nContent-Transfer-Encoding: base64\n\n"
                  "a"}));
    ASSERT_EQ(message.attachments.size(), 4u);
    EXPECT_EQ(message.attachments[0].data, std::string_view("\x00\x01\x02\xFF", 4));
    EXPECT_EQ(message.attachments[1].data, "a=b c");
    EXPECT_EQ(message.attachments[2].data, "a=3Db");
    EXPECT_EQ(message.attachments[3].data, ""); // bad base64 gives empty data
}

TEST(MIMEParserContent, InlineFlagFollowsDispositionThenContentID) {
    const std::pair<std::string, bool> rows[] = {
        {"", false},
        {"Content-ID: <i@x>\n", true},
        {"Content-Disposition: inline\n", true},
        {"Content-Disposition: INLINE\n", true},
        {"Content-Disposition: attachment\nContent-ID: <i@x>\n", false},
        {"Content-Disposition: x-other\nContent-ID: <i@x>\n", false}};
    for (const auto& [headers, isInline] : rows) {
        auto message = MIMEParser::parse(
            multipart("mixed", {"Content-Type: image/png\n" + headers + "\npng"}));
        ASSERT_EQ(message.attachments.size(), 1u) << headers;
        EXPECT_EQ(message.attachments[0].isInline, isInline) << headers;
    }
}

TEST(MIMEParserContent, InlineImageLeavesFileAttachmentsOnlyWhenTheHTMLUsesIt) {
    std::string image = "Content-Type: image/png\nContent-ID: <logo@x>\n\npng";
    std::string other = "Content-Type: image/png\nContent-ID: <unused@x>\n\npng";
    auto used = MIMEParser::parse(multipart(
        "related", {"Content-Type: text/html\n\n<img src=\"cid:logo@x\">", image, other}));
    ASSERT_EQ(used.attachments.size(), 2u);
    EXPECT_EQ(used.attachments[0].contentID, "logo@x");
    auto files = used.fileAttachments();
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].contentID, "unused@x");

    auto withoutHTML = MIMEParser::parse(multipart("related", {kPlainA, image}));
    EXPECT_EQ(withoutHTML.fileAttachments().size(), 1u);

    auto attachedNotInline = MIMEParser::parse(
        multipart("related", {"Content-Type: text/html\n\n<img src=\"cid:logo@x\">",
                              "Content-Type: image/png\nContent-ID: <logo@x>\n"
                              "Content-Disposition: attachment\n\npng"}));
    EXPECT_EQ(attachedNotInline.fileAttachments().size(), 1u);
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
    ASSERT_EQ(message.from.size(), 1u);
    EXPECT_EQ(message.from[0], (MailAddress{"Andr\xC3\xA9", "andre@example.com"}));
    EXPECT_EQ(message.to, (std::vector<MailAddress>{{"Doe, Jane", "jane@x"}, {"", "bob@y"}}));
    EXPECT_EQ(message.cc, (std::vector<MailAddress>{{"", "c@z"}}));
    EXPECT_EQ(message.replyTo, (std::vector<MailAddress>{{"", "r@z"}}));
    ASSERT_TRUE(message.date);
    EXPECT_EQ(unixSeconds(*message.date), 1709629200);
    EXPECT_EQ(message.messageID, "abc@host");
    EXPECT_EQ(message.textBody, "body\n");
}

TEST(MIMEParserContent, MissingDisplayFieldsAreEmpty) {
    auto message = MIMEParser::parse("X-Other: 1\n\nbody");
    EXPECT_EQ(message.subject, "");
    EXPECT_TRUE(message.from.empty());
    EXPECT_TRUE(message.to.empty());
    EXPECT_EQ(message.date, std::nullopt);
    EXPECT_EQ(message.messageID, std::nullopt);
    EXPECT_EQ(MIMEParser::parse("Date: 2024-03-05\n\n").date, std::nullopt);
}

TEST(MIMEParserHeadersOf, ReadsOnlyTheHeadWithinTheCap) {
    std::string filler(MIMEParser::kHeaderScanLimit, 'x');
    auto early = MIMEParser::headers("Subject: s\nX-Fill: " + filler + "\nFrom: late@x\n\nbody");
    EXPECT_EQ(early["Subject"], "s");
    EXPECT_EQ(early["From"], std::nullopt);
    EXPECT_EQ(MIMEParser::headers("A: 1\n\nB: 2\n").fields,
              (std::vector<MIMEHeaderField>{{"A", "1"}}));
}

TEST(MIMEParserContent, LooksValidAnswersWhetherItIsMail) {
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
        {"X-Fill: " + std::string(MIMEParser::kHeaderScanLimit, 'x') + "\nFrom: a@b\n\n", false}};
    for (const auto& [input, valid] : rows) {
        EXPECT_EQ(MIMEParser::looksValid(input), valid) << input.substr(0, 40);
    }
}

} // namespace
} // namespace qs
