#include "mime/MIMEHeaders.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

using Fields = std::vector<MIMEHeaderField>;

struct HeaderCase {
    const char* name;
    std::string input;
    Fields expected;
};

class MIMEHeadersParse : public testing::TestWithParam<HeaderCase> {};

TEST_P(MIMEHeadersParse, GivesTheFieldsInOrder) {
    EXPECT_EQ(MIMEHeaders::parse(GetParam().input).fields, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MIMEHeadersParse,
    testing::Values(
        HeaderCase{"Empty", "", {}}, HeaderCase{"OnlySubject", "Subject: hi", {{"Subject", "hi"}}},
        HeaderCase{"FoldedLF", "Subject: a\n b\n", {{"Subject", "a b"}}},
        HeaderCase{"FoldedCRLFWithTabs",
                   "Subject: a\r\n\t\t b  \r\nTo: x\r\n",
                   {{"Subject", "a b"}, {"To", "x"}}},
        HeaderCase{"ContinuationBeforeAnyField", " x\nFrom: a\n", {{"From", "a"}}},
        HeaderCase{"NameWithSpaceIsDropped", "Bad Name: v\nTo: t\n", {{"To", "t"}}},
        HeaderCase{"LineWithoutColonIsDropped", "garbage\nTo: t\n", {{"To", "t"}}},
        HeaderCase{"ContinuationAfterDroppedLineIsIgnored", "Bad Name: v\n more\n", {}},
        HeaderCase{"EmptyNameIsDropped", ": v\n", {}},
        HeaderCase{"NameIsTrimmed", "Subject  : x\n", {{"Subject", "x"}}},
        HeaderCase{"ValueKeepsLaterColons", "Date: 10:00:01\n", {{"Date", "10:00:01"}}},
        HeaderCase{"EmptyValue", "X-Empty:\n", {{"X-Empty", ""}}},
        HeaderCase{
            "RepeatsKept", "Received: a\nReceived: b\n", {{"Received", "a"}, {"Received", "b"}}},
        HeaderCase{"Latin1BytesReadAsWindows1252",
                   "Subject: caf\xE9 \x80\n",
                   {{"Subject", "caf\xC3\xA9 \xE2\x82\xAC"}}},
        HeaderCase{"UndefinedWindows1252ByteIsRepaired",
                   "Subject: a\x81\xE9\n",
                   {{"Subject", "a\xEF\xBF\xBD\xEF\xBF\xBD"}}},
        HeaderCase{"UTF8Kept", "Subject: \xC3\xA9t\xC3\xA9\n", {{"Subject", "\xC3\xA9t\xC3\xA9"}}}),
    [](const testing::TestParamInfo<HeaderCase>& info) { return std::string(info.param.name); });

TEST(MIMEHeaders, LookupIgnoresCaseAndGivesTheFirstMatch) {
    auto headers = MIMEHeaders::parse("received: one\nRECEIVED: two\nSubject: s\n");
    EXPECT_EQ(headers["Received"], "one");
    EXPECT_EQ(headers["subject"], "s");
    EXPECT_EQ(headers["X-Missing"], std::nullopt);
    EXPECT_EQ(headers.all("Received"), (std::vector<std::string>{"one", "two"}));
    EXPECT_TRUE(headers.contains("SUBJECT"));
    ASSERT_NE(headers.first("subject"), nullptr);
    EXPECT_EQ(*headers.first("subject"), "s");
}

TEST(MIMEHeaders, CaseFoldingIsLettersOnly) {
    // '@' and '`' differ by the case bit alone; they must not be taken for the same name.
    auto headers = MIMEHeaders::parse("X-@: a\n");
    EXPECT_EQ(headers["X-`"], std::nullopt);
    EXPECT_EQ(headers["x-@"], "a");
}

} // namespace
} // namespace qs
