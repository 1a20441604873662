#include "mime/HeaderParams.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qs;
using Params = std::map<std::string, std::string>;

TEST(HeaderParams, Parse) {
    struct Row {
        const char* name;
        const char* input;
        HeaderParams::Parsed parsed;
    };
    const std::vector<Row> rows{
        {"quoted semicolon",
         "attachment; filename=\"a;b.txt\"",
         {"attachment", Params{{"filename", "a;b.txt"}}}},
        {"two parameters",
         "text/plain; charset=\"utf-8\"; format=flowed",
         {"text/plain", Params{{"charset", "utf-8"}, {"format", "flowed"}}}},
        {"escaped quote", "x; name=\"a\\\"b\"", {"x", Params{{"name", "a\"b"}}}},
        {"escaped backslash", "x; name=\"a\\\\b\"", {"x", Params{{"name", "a\\b"}}}},
        {"backslash outside quotes is ordinary", "x; name=a\\b", {"x", Params{{"name", "a\\b"}}}},
        {"piece without equals skipped", "x; noequals; a=1", {"x", Params{{"a", "1"}}}},
        {"names lower-cased and trimmed",
         " X ;  CharSet = UTF-8 ",
         {"X", Params{{"charset", "UTF-8"}}}},
        {"later wins", "x; a=1; a=2", {"x", Params{{"a", "2"}}}},
        {"lone quote kept", "x; a=\"", {"x", Params{{"a", "\""}}}},
        {"empty quoted", "x; a=\"\"", {"x", Params{{"a", ""}}}},
        {"trailing semicolon", "x;", {"x", Params{}}},
        {"empty text", "", {"", Params{}}},
        {"only value", "inline", {"inline", Params{}}},
        {"unterminated quote swallows the rest", "x; a=\"1; b=2", {"x", Params{{"a", "\"1; b=2"}}}},
        {"value with equals", "x; a=b=c", {"x", Params{{"a", "b=c"}}}},
        {"RFC 2231 with charset",
         "x; filename*=UTF-8''%e2%82%ac.txt",
         {"x", Params{{"filename", "€.txt"}}}},
        {"RFC 2231 Latin-1",
         "x; filename*=iso-8859-1'en'caf%E9",
         {"x", Params{{"filename", "café"}}}},
        {"RFC 2231 without charset reads UTF-8",
         "x; filename*=%c3%a9",
         {"x", Params{{"filename", "é"}}}},
        {"RFC 2231 empty charset", "x; filename*=''%41", {"x", Params{{"filename", "A"}}}},
        {"sections mixed",
         "x; filename*0*=UTF-8''a%20; filename*1=b",
         {"x", Params{{"filename", "a b"}}}},
        {"sections out of order", "x; a*1=2; a*0=1", {"x", Params{{"a", "12"}}}},
        {"sections win over plain",
         "x; name*0=sec; name=plain; name*1=tion",
         {"x", Params{{"name", "section"}}}},
        {"sections split a UTF-8 character",
         "x; t*0*=utf-8''%E2%82; t*1*=%AC",
         {"x", Params{{"t", "€"}}}},
        {"sections with charset in Shift_JIS",
         "x; t*0*=shift_jis''%93%fa; t*1*=%96%7b",
         {"x", Params{{"t", "日本"}}}},
        {"charset only in first section",
         "x; t*0*=iso-8859-1''%e9; t*1*=x'y'%e9",
         {"x", Params{{"t", "éx'y'é"}}}},
        {"unreadable section number kept whole", "x; a*b=1", {"x", Params{{"a*b", "1"}}}},
        {"quoted section", "x; a*0=\"hello \"; a*1=\"world\"", {"x", Params{{"a", "hello world"}}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(HeaderParams::parse(row.input), row.parsed);
    }
}

TEST(HeaderParams, Decode2231Bytes) {
    struct Row {
        const char* name;
        const char* input;
        bool first;
        HeaderParams::Extended extended;
    };
    const std::vector<Row> rows{
        {"charset and language", "utf-8'en'%41b", true, {"Ab", "utf-8"}},
        {"not first: all decoded", "utf-8'en'%41", false, {"utf-8'en'A", std::nullopt}},
        {"one quote", "it's", true, {"it's", std::nullopt}},
        {"three quotes", "a'b'c'd", true, {"a'b'c'd", std::nullopt}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto got = HeaderParams::decode2231Bytes(row.input, row.first);
        EXPECT_EQ(got.bytes, row.extended.bytes);
        EXPECT_EQ(got.charset, row.extended.charset);
    }
}
