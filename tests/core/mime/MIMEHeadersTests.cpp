#include "mime/MIMEHeaders.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

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

} // namespace
} // namespace qs
