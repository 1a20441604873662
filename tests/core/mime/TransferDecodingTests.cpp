#include "mime/TransferDecoding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qs;

namespace {

struct Row {
    const char* name;
    std::string input;
    std::string output;
};

} // namespace

TEST(TransferDecoding, QuotedPrintable) {
    const std::vector<Row> rows{
        {"escape", "a=3Db", "a=b"},
        {"lower-case hex", "=c3=a9", "\xc3\xa9"},
        {"soft break CRLF", "a=\r\nb", "ab"},
        {"soft break LF", "a=\nb", "ab"},
        {"soft break after blanks and CR", "a= \t\r\nb", "ab"},
        {"bad escape stays", "a=ZZ", "a=ZZ"},
        {"half escape stays", "a=3Z", "a=3Z"},
        {"equals at end dropped", "100%=", "100%"},
        {"equals and blanks at end dropped", "x=  ", "x"},
        {"equals CR at end dropped", "x=\r", "x"},
        {"equals CR not followed by LF stays", "a=\rb", "a=\rb"},
        {"one byte after equals", "a=4", "a=4"},
        {"trailing whitespace kept", "a  \r\nb\t", "a  \r\nb\t"},
        {"underscore untouched", "a_b", "a_b"},
        {"8-bit passes", "\xff=41",
         "\xff"
         "A"},
        {"empty", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(TransferDecoding::quotedPrintable(row.input), row.output);
        EXPECT_EQ(TransferDecoding::quotedPrintable(row.input, true), row.output);
    }
}

TEST(TransferDecoding, Base64) {
    const std::vector<Row> rows{
        {"padded", "aGk=", "hi"},
        {"unpadded", "aGk", "hi"},
        {"two short", "aA", "h"},
        {"lone character dropped", "a", ""},
        {"five characters", "aGVsb", "hel"},
        {"line breaks and blanks at line ends ignored", " aGVs \r\n\r\nbG8=\n", "hello"},
        {"padding ends the data", "aGk=aGk=\r\nbG8=", "hi"},
        {"extra padding", "aGk====", "hi"},
        {"a list footer after the data is dropped",
         "aGVs\r\nbG8=\r\n\r\n_______________\r\nList footer\r\n", "hello"},
        {"unpadded data ends at a line that isn't base64", "aGVs\nbG8\n-- \nsig", "hello"},
        {"garbage inside a line ends the data", "aGVs\r\nbG8*!\n", "hel"},
        {"unpadded data ends at a line of words", "aGVs\nbG8\nSent from my phone\n", "hello"},
        {"lines before the data that aren't base64 are passed over", "not: base64\naGk=", "hi"},
        {"all bytes", "AP8A/w==", std::string("\x00\xff\x00\xff", 4)},
        {"empty", "", ""},
        {"only garbage", "***\n", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(TransferDecoding::base64(row.input), row.output);
    }
}

TEST(TransferDecoding, DecodeSelectsByExactLowerCaseName) {
    EXPECT_EQ(TransferDecoding::decode("aGk=", "base64"), "hi");
    EXPECT_EQ(TransferDecoding::decode("a=3Db", "quoted-printable"), "a=b");
    for (const char* other : {"7bit", "8bit", "binary", "x-uuencode", "BASE64", ""}) {
        SCOPED_TRACE(other);
        EXPECT_EQ(TransferDecoding::decode("a=3Db", other), "a=3Db");
    }
}
