#include "mime/MIMEParser.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

// What mailers really send, where a reading by the letter of the standards goes wrong.
TEST(MIMEParserRealMail, ReadsAsMailReadersDo) {
    struct Row {
        const char* name;
        std::string message;
        std::string subject;
        std::optional<std::string> textBody;
    } rows[] = {{"ISO-2022-JP body with a redundant reset",
                 "Subject: j\r\nContent-Type: text/plain; charset=iso-2022-jp\r\n\r\n"
                 "\x1b$BF|\x1b(B\x1b$BK\\\x1b(B\r\n",
                 "j", "日本\r\n"},
                {"lines ending in CR alone",
                 "From: a@example.org\rSubject: Old Mac\r\rfirst\rsecond\r", "Old Mac",
                 "first\nsecond\n"},
                {"CR alone in a multipart",
                 "Subject: m\rContent-Type: multipart/mixed; boundary=b\r\r--b\r"
                 "Content-Type: text/plain\r\rpart\r--b--\r",
                 "m", "part"},
                {"base64 EUC-KR body followed by a list footer",
                 "Subject: k\r\nContent-Type: text/plain; charset=euc-kr\r\n"
                 "Content-Transfer-Encoding: base64\r\n\r\nx9Gxub7uILjewM/A1LTPtNk=\r\n\r\n"
                 "_______________\r\nList mailing list\r\n",
                 "k", "한국어 메일입니다"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto message = MIMEParser::parse(row.message);
        EXPECT_EQ(message.subject, row.subject);
        EXPECT_EQ(message.textBody, row.textBody);
        EXPECT_NE(MIMEParser::headers(row.message).first("Subject"), nullptr);
    }
}

} // namespace
} // namespace qs
