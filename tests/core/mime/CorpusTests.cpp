#include "mime/AddressParser.h"
#include "mime/Charsets.h"
#include "mime/EncodedWords.h"
#include "mime/MIMEParser.h"
#include "mime/MailDate.h"
#include "mime/TextTrim.h"
#include "support/Corpus.h"
#include "support/Unicode.h"

#include <algorithm>
#include <set>

#include <gtest/gtest.h>

namespace qs {
namespace {

const std::vector<test::CorpusMessage>& corpus() {
    static const std::vector<test::CorpusMessage> messages = test::corpusMessages();
    return messages;
}

// An encoded word that the decoder would accept and whose charset is known, left in text
// that should have been decoded.
bool holdsUndecodedWord(std::string_view text) {
    for (size_t at = text.find("=?"); at != std::string_view::npos; at = text.find("=?", at + 2)) {
        auto word = EncodedWords::decodeWord(text.substr(at));
        if (word && Charsets::encoding(word->charset)) {
            return true;
        }
    }
    return false;
}

void walk(const MIMEPart& part, const std::string& buffer, int depth, std::string& problems) {
    if (depth > MIMEParser::kMaxDepth) {
        problems += " deeper than the limit;";
    }
    if (!part.body.empty() &&
        (part.body.data() < buffer.data() ||
         part.body.data() + part.body.size() > buffer.data() + buffer.size())) {
        problems += " body outside the message buffer;";
    }
    if (!part.children.empty() && !part.body.empty()) {
        problems += " split multipart kept its body;";
    }
    for (const auto& field : part.headers.fields) {
        if (!Unicode::isValidUTF8(field.name) || !Unicode::isValidUTF8(field.value)) {
            problems += " header not UTF-8;";
        }
    }
    for (const auto& child : part.children) {
        walk(child, buffer, depth + 1, problems);
    }
}

TEST(Corpus, EveryMessageParsesIntoASaneResult) {
    size_t encodedSubjects = 0;
    size_t dates = 0;
    size_t parsedDates = 0;
    for (const auto& message : corpus()) {
        auto buffer = std::make_shared<const std::string>(message.bytes);
        ParsedMessage parsed = MIMEParser::parse(ByteSlice(buffer));
        std::string problems;
        walk(parsed.root, *buffer, 0, problems);
        if (parsed.headers != parsed.root.headers ||
            parsed.headers != MIMEParser::headers(message.bytes)) {
            problems += " headers differ from the root's or the headers-only parse;";
        }
        for (const auto& field : parsed.headers.fields) {
            if (TextTrim::equalsIgnoringCase(field.name, "from") ||
                TextTrim::equalsIgnoringCase(field.name, "to")) {
                auto addresses = AddressParser::parse(field.value);
                if (field.value.find('@') != std::string::npos && addresses.empty()) {
                    problems += " no address in: " + field.value + ";";
                }
                for (const auto& address : addresses) {
                    if (!Unicode::isValidUTF8(address.name) ||
                        field.value.find(address.email) == std::string::npos) {
                        problems += " address: " + address.email + ";";
                    }
                }
            } else if (TextTrim::equalsIgnoringCase(field.name, "date")) {
                ++dates;
                // Whatever parses lies between 1900 and 2100.
                if (auto date = MailDate::parse(field.value)) {
                    ++parsedDates;
                    if (unixSeconds(*date) < -2208988800 || unixSeconds(*date) > 4102444800) {
                        problems += " date: " + field.value + ";";
                    }
                }
            }
        }
        if (!Unicode::isValidUTF8(parsed.subject) || holdsUndecodedWord(parsed.subject)) {
            problems += " subject: " + parsed.subject + ";";
        }
        encodedSubjects += parsed.subject.find("=?") == std::string::npos &&
                           parsed.headers["subject"].value_or("").find("=?") != std::string::npos;
        for (const auto& body : {parsed.textBody, parsed.htmlBody}) {
            if (body && !Unicode::isValidUTF8(*body)) {
                problems += " body not UTF-8;";
            }
        }
        for (size_t i = 0; i < parsed.attachments.size(); ++i) {
            const MailAttachment& attachment = parsed.attachments[i];
            if (attachment.id != int64_t(i)) {
                problems += " attachment ids out of order;";
            }
            if (attachment.filename.empty() || !Unicode::isValidUTF8(attachment.filename) ||
                holdsUndecodedWord(attachment.filename)) {
                problems += " attachment name: " + attachment.filename + ";";
            }
            if (attachment.mimeType.find('/') == std::string::npos) {
                problems += " attachment type: " + attachment.mimeType + ";";
            }
        }
        if (parsed.fileAttachments().size() > parsed.attachments.size()) {
            problems += " more files than attachments;";
        }
        EXPECT_EQ(problems, "") << message.name;
    }
    // Guards against decoders that silently give up on mostly well-formed mail.
    EXPECT_GT(encodedSubjects, 20u);
    EXPECT_GT(parsedDates * 10, dates * 9);
}

std::string withoutCR(std::string_view text) {
    std::string out(text);
    std::erase(out, '\r');
    return out;
}

std::string crlfToLF(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (!(text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')) {
            out += text[i];
        }
    }
    return out;
}

// Line ends are the mailer's choice: the same message with CR LF turned into LF must read the
// same, up to the carriage returns left in its texts and raw data.
TEST(Corpus, LineEndsDontChangeTheResult) {
    for (const auto& message : corpus()) {
        if (message.bytes.find("\r\n") == std::string::npos) {
            continue;
        }
        SCOPED_TRACE(message.name);
        ParsedMessage crlf = MIMEParser::parse(message.bytes);
        ParsedMessage lf = MIMEParser::parse(crlfToLF(message.bytes));
        EXPECT_EQ(crlf.headers, lf.headers);
        EXPECT_EQ(crlf.subject, lf.subject);
        EXPECT_EQ(withoutCR(crlf.textBody.value_or("-")), withoutCR(lf.textBody.value_or("-")));
        EXPECT_EQ(withoutCR(crlf.htmlBody.value_or("-")), withoutCR(lf.htmlBody.value_or("-")));
        ASSERT_EQ(crlf.attachments.size(), lf.attachments.size());
        for (size_t i = 0; i < crlf.attachments.size(); ++i) {
            EXPECT_EQ(crlf.attachments[i].filename, lf.attachments[i].filename);
            EXPECT_EQ(crlf.attachments[i].mimeType, lf.attachments[i].mimeType);
            EXPECT_EQ(withoutCR(crlf.attachments[i].data.view()),
                      withoutCR(lf.attachments[i].data.view()));
        }
    }
}

// Real mail: every message shows some text, apart from these, checked by hand.
TEST(Corpus, OrdinaryMailHasText) {
    const std::set<std::string> withoutText = {
        "go-gmime/fixtures/test2.eml",              // a lone JPEG as the whole message
        "mailcore2/summary/input/1798-korean.eml",  // HTML made only of images
        "mailcore2/summary/input/2977-chinese.eml", // a blank text part and a photo
        "mailcore2/summary/input/broken-utf8.eml",  // empty body
        "mailcore2/summary/input/gh-965-utf8.eml",  // empty body
    };
    int checked = 0;
    for (const auto& message : corpus()) {
        if (!message.name.starts_with("talon/") && !message.name.starts_with("blaze/") &&
            !message.name.starts_with("go-gmime/") && !message.name.starts_with("mailcore2/")) {
            continue;
        }
        ++checked;
        ParsedMessage parsed = MIMEParser::parse(message.bytes);
        bool hasText = !TextTrim::whitespaceAndNewlines(parsed.plainText()).empty();
        EXPECT_EQ(hasText, !withoutText.contains(message.name)) << message.name;
    }
    EXPECT_EQ(checked, 76);
}

// `count` names made of `prefix`, a number from 1 and `suffix`.
std::vector<std::string> numbered(std::string_view prefix, std::string_view suffix, int count) {
    std::vector<std::string> names;
    for (int i = 1; i <= count; ++i) {
        names.push_back(std::string(prefix) + std::to_string(i) + std::string(suffix));
    }
    return names;
}

TEST(Corpus, GoldenFields) {
    struct Row {
        std::string name;
        std::string subject;
        std::string textStart;                // start of plainText
        std::vector<std::string> attachments; // names, in order
        size_t fileAttachments;
    };
    const Row rows[] = {
        // A digest whose parts name no type: each is an enclosed message.
        {"cpython-email/msg_02.txt", "Ppp digest, Vol 1 #2 - 5 msgs",
         "Send Ppp mailing list submissions to", numbered("attachment-", ".eml", 5), 5},
        // RFC 2231 continuation of an ISO-2022-JP file name.
        {"ruby-mail/multi_charset/japanese_attachment_long_name.eml",
         "まみむめもまみむめもまみむめもまみむめもまみむめもまみむめもまみむめもまみむめ"
         "もまみむめもまみむめも",
         "",
         {"かきくけこかきくけこかきくけこかきくけこかきくけこ.txt"},
         1},
        {"ruby-mail/attachment_emails/attachment_nonascii_filename.eml",
         "testing",
         "This is the first part.",
         {"ciële.txt"},
         1},
        {"ruby-mail/attachment_emails/attachment_with_base64_encoded_name.eml",
         "Fwd: Signed email causes file attachments",
         "We should not include",
         {"This is a test.pdf"},
         1},
        // The inline image the HTML shows is no file; the attached message is.
        {"ruby-mail/attachment_emails/attachment_message_rfc822_inline_image.eml",
         "test",
         "",
         {"img.png", "Testmail.eml"},
         1},
        {"mailcore2/summary/input/989-encoding-7.eml",
         "Тестовое сообщение в кодировке windows-1251",
         "Тестовое сообщение",
         {},
         0},
        // 35 inline images, each referred to by the HTML.
        {"mailcore2/summary/input/989-encoding-8.eml",
         "Видеообзоры интересных девайсов только для вас!", "Чтобы в дальнейшем",
         numbered("", ".jpg", 35), 0},
        {"mailcore2/summary/input/1808-winmail-dat.eml",
         "RE\u00A0: TR : Installation Hyperion sous Linux",
         "",
         {"winmail.dat"},
         1},
        {"mimekit/messages/startrek.eml",
         "Star Trek Party!",
         "You are invited",
         {"attachment-1", "attachment-2.gif", "attachment-3.gif", "attachment-4", "attachment-5"},
         5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto message = std::find_if(corpus().begin(), corpus().end(),
                                    [&](const auto& m) { return m.name == row.name; });
        ASSERT_NE(message, corpus().end());
        ParsedMessage parsed = MIMEParser::parse(message->bytes);
        EXPECT_EQ(parsed.subject, row.subject);
        EXPECT_TRUE(parsed.plainText().starts_with(row.textStart))
            << parsed.plainText().substr(0, 80);
        std::vector<std::string> names;
        for (const auto& attachment : parsed.attachments) {
            names.push_back(attachment.filename);
        }
        EXPECT_EQ(names, row.attachments);
        EXPECT_EQ(parsed.fileAttachments().size(), row.fileAttachments);
    }
}

} // namespace
} // namespace qs
