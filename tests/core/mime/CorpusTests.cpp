#include "mime/AddressParser.h"
#include "mime/Charsets.h"
#include "mime/EncodedWords.h"
#include "mime/MIMEParser.h"
#include "mime/MailDate.h"
#include "mime/TextTrim.h"
#include "support/Corpus.h"
#include "support/Unicode.h"

#include <set>

#include <gtest/gtest.h>

namespace qs {
namespace {

bool holdsUndecodedWord(std::string_view text) {
    for (size_t at = text.find("=?"); at != std::string_view::npos; at = text.find("=?", at + 2)) {
        auto word = EncodedWords::decodeWord(text.substr(at));
        if (word && Charsets::encoding(word->charset)) {
            return true;
        }
    }
    return false;
}

void walk(const MIMEPart& part, std::string& problems) {
    auto flag = [&](bool bad, const char* what) {
        problems += bad ? what : "";
    };
    flag(!part.children.empty() && !part.body.empty(), " split multipart kept its body;");
    for (const auto& field : part.headers.fields) {
        flag(!Unicode::isValidUTF8(field.name) || !Unicode::isValidUTF8(field.value),
             " header not UTF-8;");
    }
    for (const auto& child : part.children) {
        walk(child, problems);
    }
}

std::string withoutCR(std::string_view text) {
    std::string out(text);
    std::erase(out, '\r');
    return out;
}

std::vector<std::string> lineEndFree(const ParsedMessage& parsed) {
    std::vector<std::string> out = {parsed.subject, withoutCR(parsed.textBody.value_or("-")),
                                    withoutCR(parsed.htmlBody.value_or("-"))};
    for (const auto& field : parsed.headers.fields) {
        out.push_back(field.name + ": " + field.value);
    }
    for (const auto& attachment : parsed.attachments) {
        out.push_back(attachment.filename + " " + attachment.mimeType + " " +
                      withoutCR(attachment.data.view()));
    }
    return out;
}

// Messages of ordinary senders that show no text, checked by hand.
const std::set<std::string> kWithoutText = {
    "go-gmime/fixtures/test2.eml",              // a lone JPEG as the whole message
    "mailcore2/summary/input/1798-korean.eml",  // HTML made only of images
    "mailcore2/summary/input/2977-chinese.eml", // a blank text part and a photo
    "mailcore2/summary/input/broken-utf8.eml",  // empty body
    "mailcore2/summary/input/gh-965-utf8.eml",  // empty body
};

TEST(Corpus, EveryMessageParsesIntoASaneResult) {
    size_t encodedSubjects = 0, dates = 0, parsedDates = 0, ordinary = 0;
    for (const auto& message : test::corpusMessages()) {
        ParsedMessage parsed = MIMEParser::parse(message.bytes);
        std::string problems;
        auto flag = [&](bool bad, const std::string& what) {
            problems += bad ? what : "";
        };
        walk(parsed.root, problems);
        flag(parsed.headers != parsed.root.headers ||
                 parsed.headers != MIMEParser::headers(message.bytes),
             " headers differ from the root's or the headers-only parse;");
        for (const auto& field : parsed.headers.fields) {
            if (TextTrim::equalsIgnoringCase(field.name, "from") ||
                TextTrim::equalsIgnoringCase(field.name, "to")) {
                auto addresses = AddressParser::parse(field.value);
                flag(field.value.find('@') != std::string::npos && addresses.empty(),
                     " no address in: " + field.value + ";");
                for (const auto& address : addresses) {
                    flag(!Unicode::isValidUTF8(address.name) ||
                             field.value.find(address.email) == std::string::npos,
                         " address: " + address.email + ";");
                }
            } else if (TextTrim::equalsIgnoringCase(field.name, "date")) {
                ++dates;
                if (auto date = MailDate::parse(field.value)) {
                    ++parsedDates;
                    flag(unixSeconds(*date) < -2208988800 || unixSeconds(*date) > 4102444800,
                         " date: " + field.value + ";");
                }
            }
        }
        flag(!Unicode::isValidUTF8(parsed.subject) || holdsUndecodedWord(parsed.subject),
             " subject: " + parsed.subject + ";");
        encodedSubjects += parsed.subject.find("=?") == std::string::npos &&
                           parsed.headers["subject"].value_or("").find("=?") != std::string::npos;
        for (const auto& body : {parsed.textBody, parsed.htmlBody}) {
            flag(body && !Unicode::isValidUTF8(*body), " body not UTF-8;");
        }
        for (size_t i = 0; i < parsed.attachments.size(); ++i) {
            const MailAttachment& attachment = parsed.attachments[i];
            flag(attachment.id != int64_t(i), " attachment ids out of order;");
            flag(attachment.filename.empty() || !Unicode::isValidUTF8(attachment.filename) ||
                     holdsUndecodedWord(attachment.filename) ||
                     attachment.mimeType.find('/') == std::string::npos,
                 " attachment: " + attachment.filename + " " + attachment.mimeType + ";");
        }
        // Line ends are the mailer's choice: with CR LF made LF the message reads the same.
        if (message.bytes.find("\r\n") != std::string::npos) {
            std::string lf;
            for (size_t i = 0; i < message.bytes.size(); ++i) {
                if (message.bytes.compare(i, 2, "\r\n") != 0) {
                    lf += message.bytes[i];
                }
            }
            flag(lineEndFree(parsed) != lineEndFree(MIMEParser::parse(lf)), " line ends matter;");
        }
        for (const char* sender : {"talon/", "blaze/", "go-gmime/", "mailcore2/"}) {
            if (message.name.starts_with(sender)) {
                ++ordinary;
                flag(TextTrim::whitespaceAndNewlines(parsed.plainText()).empty() !=
                         kWithoutText.contains(message.name),
                     " text shown or not shown wrongly;");
            }
        }
        EXPECT_EQ(problems, "") << message.name;
    }
    EXPECT_EQ(ordinary, 76u);
    EXPECT_GT(encodedSubjects, 20u);
    EXPECT_GT(parsedDates * 10, dates * 9);
}

} // namespace
} // namespace qs
