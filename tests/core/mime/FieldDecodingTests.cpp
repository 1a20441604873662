#include "mime/AddressParser.h"
#include "mime/EncodedWords.h"
#include "mime/HeaderParams.h"
#include "mime/MailAddress.h"
#include "mime/MimeTypes.h"
#include "mime/PercentDecode.h"
#include "mime/TextTrim.h"
#include "mime/TransferDecoding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qs {
namespace {

using Addresses = std::vector<MailAddress>;
using Params = std::map<std::string, std::string>;

template <typename In, typename Out, typename F>
void expectRows(F f, const std::vector<std::pair<In, Out>>& rows) {
    for (const auto& [input, output] : rows) {
        SCOPED_TRACE(::testing::PrintToString(input));
        EXPECT_EQ(f(input), output);
    }
}

TEST(AddressParser, Parse) {
    expectRows<std::string, Addresses>(
        [](const std::string& s) { return AddressParser::parse(s); },
        {
            {"\"Doe, Jane\" <jane@x>, bob@y", {{"Doe, Jane", "jane@x"}, {"", "bob@y"}}},
            {"Team: a@x, b@y;", {{"", "a@x"}, {"", "b@y"}}},
            {"Mailing list: <a@x>", {{"Mailing list:", "a@x"}}},
            {"jane@x (Jane Doe)", {{"Jane Doe", "jane@x"}}},
            {"=?UTF-8?Q?Andr=C3=A9?= <a@x>", {{"André", "a@x"}}},
            {"\"=?UTF-8?B?w6k=?=\" <e@x>", {{"é", "e@x"}}},
            {"a@x (=?UTF-8?Q?Andr=C3=A9?=)", {{"André", "a@x"}}},
            {"undisclosed-recipients:;", {}},
            {"plain text", {}},
            {"a@x; b@y", {{"", "a@x"}, {"", "b@y"}}},
            {"<a,b@x>", {{"", "a,b@x"}}},
            {"a@x (it\"s), b@y", {{"it\"s", "a@x"}, {"", "b@y"}}}, // no quoting inside comments
            {"\"say \\\"hi\\\"\" <a@x>", {{"say \"hi\"", "a@x"}}},
            {"Jane\r\n <jane@x>,\r\n bob@y", {{"Jane", "jane@x"}, {"", "bob@y"}}},
            {"a@x>>, b@y))", {{"", "a@x>>"}, {"", "b@y))"}}},
            {",,a@x,,", {{"", "a@x"}}},
            {"Jane <a@x> <b", {{"", "Jane <a@x> <b"}}},
            {"x <a@x> <b@y>", {{"x <a@x>", "b@y"}}},
            {"Jane <>", {{"Jane", ""}}},
            // An unclosed comment runs to the end: nothing after it splits, and it names no one.
            {"a@x (Jane, b@y", {{"", "a@x (Jane, b@y"}}},
            {"b@y) x (c", {{"", "b@y) x (c"}}},
        });
    expectRows<std::string, std::optional<MailAddress>>(
        [](const std::string& s) { return AddressParser::one(s); },
        {
            {"  a@x  ", MailAddress{"", "a@x"}},
            {"Team:\t a@x", MailAddress{"", "a@x"}},
            {"\"Jane\" <jane@x>", MailAddress{"Jane", "jane@x"}},
            {"\" <a@x>", MailAddress{"", "a@x"}},
            {"Team:", std::nullopt},
            {"nobody", std::nullopt},
        });
}

TEST(MailAddress, ComputedPropertiesAndJSON) {
    EXPECT_EQ((MailAddress{"Jane Doe", "j@x"}).formatted(), "Jane Doe <j@x>");
    EXPECT_EQ((MailAddress{"", "bob@y"}).formatted(), "bob@y");
    EXPECT_EQ((MailAddress{"", "bob@y"}).display(), "bob@y");
    expectRows<std::string, std::string>(
        [](const std::string& email) {
            return MailAddress{"", email}.domain();
        },
        {{"Jane@Example.COM", "example.com"},
         {"a@b@C.org", "c.org"},
         {"a@x.org@", "x.org"},
         {"NoAt", "noat"},
         {"@@", ""}});

    // Stored with exactly these two keys.
    nlohmann::json json = MailAddress{"André", "a@x"};
    EXPECT_EQ(json, nlohmann::json::parse(R"({"name":"André","email":"a@x"})"));
    EXPECT_EQ(json.get<MailAddress>(), (MailAddress{"André", "a@x"}));
    for (const char* bad : {R"({"email":"a@x"})", R"({"name":"","email":3})"}) {
        EXPECT_THROW(nlohmann::json::parse(bad).get<MailAddress>(), nlohmann::json::exception);
    }
}

TEST(EncodedWords, Decode) {
    expectRows<std::string, std::string>(
        [](const std::string& s) { return EncodedWords::decode(s); },
        {
            {"plain subject", "plain subject"},
            {"=?UTF-8?B?aGk=?= =?UTF-8?B?dGhlcmU=?=", "hithere"},
            {"=?UTF-8?B?aGk=?=\r\n\t=?UTF-8?B?dGhlcmU=?=", "hithere"},
            {"a =?UTF-8?Q?b_c?= d", "a b c d"},
            {"=?UTF-8?Q?=C3?==?UTF-8?Q?=A9?=", "é"},
            {"=?iso-8859-1?Q?=E9?==?utf-8?Q?=C3=A9?=", "éé"},
            {"=?x?Z?a?=", "=?x?Z?a?="},
            {"=?UTF-8?Q?a b?=", "=?UTF-8?Q?a b?="},
            {"=?UTF-8?Q?abc", "=?UTF-8?Q?abc"},
            {"Re:=?UTF-8?Q?x?=y", "Re:xy"},
            {"Re:  =?UTF-8?Q?x?=", "Re:  x"},
            {"=?UTF-8?Q?x?=  ", "x  "},
            {"=?ISO-2022-JP?B?GyRCRnwbKEI=?=\r\n =?ISO-2022-JP?B?GyRCS1wbKEI=?=", "日本"},
            // An 8-bit byte inside a Q word is of the word's charset.
            {"=?iso-8859-1?Q?Fr\xc3\xb6sche_=E4?=", "Frösche ä"},
            {"=?us-ascii?Q?caf=E9?=", "café"},
            {"=?UTF-8?Q?"
             "?=x",
             "x"},
            {"=?a =?UTF-8?Q?b?=", "=?a b"},
            {"é =?UTF-8?Q?x?= ü", "é x ü"},
        });
    expectRows<std::string, std::optional<EncodedWords::Word>>(
        [](const std::string& s) { return EncodedWords::decodeWord(s); },
        {
            {"=?UTF-8?B?aGk=?= rest", EncodedWords::Word{"hi", "UTF-8", 16}},
            {"=?utf-8?Q?a_b=3D?=", EncodedWords::Word{"a b=", "utf-8", 18}},
            {"=?us-ascii*EN?q?x?=", EncodedWords::Word{"x", "us-ascii", 19}},
            {"=?UTF-8?Q?ab", std::nullopt},
            {"x=?UTF-8?Q?ab?=", std::nullopt},
            {"=?", std::nullopt},
        });
}

TEST(EncodedWords, ManyUnterminatedWordsStayLinear) {
    // Each "=?a?b?" opens a word that a later space spoils; a quadratic scan takes minutes.
    std::string text;
    for (int i = 0; i < 200000; ++i) {
        text += "=?a?b?cc";
    }
    text += " ?=";
    EXPECT_EQ(EncodedWords::decode(text), text);
}

TEST(HeaderParams, Parse) {
    expectRows<std::string, HeaderParams::Parsed>(
        [](const std::string& s) { return HeaderParams::parse(s); },
        {
            {"attachment; filename=\"a;b.txt\"", {"attachment", Params{{"filename", "a;b.txt"}}}},
            {"text/plain; charset=\"utf-8\"; format=flowed",
             {"text/plain", Params{{"charset", "utf-8"}, {"format", "flowed"}}}},
            {"x; name=\"a\\\"b\"", {"x", Params{{"name", "a\"b"}}}},
            {"x; name=a\\b", {"x", Params{{"name", "a\\b"}}}},
            {"x; noequals; a=1", {"x", Params{{"a", "1"}}}},
            {" X ;  CharSet = UTF-8 ", {"X", Params{{"charset", "UTF-8"}}}},
            {"x; a=1; a=2", {"x", Params{{"a", "2"}}}},
            {"", {"", Params{}}},
            {"x; a=\"1; b=2", {"x", Params{{"a", "\"1; b=2"}}}},
            {"x; a=b=c", {"x", Params{{"a", "b=c"}}}},
            {"x; filename*=UTF-8''%e2%82%ac.txt", {"x", Params{{"filename", "€.txt"}}}},
            {"x; filename*=iso-8859-1'en'caf%E9", {"x", Params{{"filename", "café"}}}},
            {"x; filename*=%c3%a9", {"x", Params{{"filename", "é"}}}},
            {"x; filename*0*=UTF-8''a%20; filename*1=b", {"x", Params{{"filename", "a b"}}}},
            {"x; a*1=2; a*0=1", {"x", Params{{"a", "12"}}}},
            {"x; name*0=sec; name=plain; name*1=tion", {"x", Params{{"name", "section"}}}},
            {"x; t*0*=utf-8''%E2%82; t*1*=%AC", {"x", Params{{"t", "€"}}}},
            {"x; t*0*=iso-8859-1''%e9; t*1*=x'y'%e9", {"x", Params{{"t", "éx'y'é"}}}},
            {"x; a*b=1", {"x", Params{{"a*b", "1"}}}},
            {"x; a*0=\"hello \"; a*1=\"world\"", {"x", Params{{"a", "hello world"}}}},
        });
    const std::tuple<const char*, bool, HeaderParams::Extended> rows[] = {
        {"utf-8'en'%41b", true, {"Ab", "utf-8"}},
        {"utf-8'en'%41", false, {"utf-8'en'A", std::nullopt}},
        {"it's", true, {"it's", std::nullopt}},
        {"a'b'c'd", true, {"a'b'c'd", std::nullopt}},
    };
    for (const auto& [input, first, extended] : rows) {
        SCOPED_TRACE(input);
        auto got = HeaderParams::decode2231Bytes(input, first);
        EXPECT_EQ(got.bytes, extended.bytes);
        EXPECT_EQ(got.charset, extended.charset);
    }
}

TEST(TransferDecoding, QuotedPrintable) {
    for (bool header : {false, true}) {
        expectRows<std::string, std::string>(
            [&](const std::string& s) { return TransferDecoding::quotedPrintable(s, header); },
            {
                {"a=3Db", "a=b"},
                {"=c3=a9", "\xc3\xa9"},
                {"a=\r\nb", "ab"},
                {"a= \t\r\nb", "ab"},
                {"a=3Z", "a=3Z"},
                {"100%=", "100%"},
                {"x=  ", "x"},
                {"x=\r", "x"},
                {"a=\rb", "a=\rb"},
                {"a=4", "a=4"},
                {"a  \r\nb\t", "a  \r\nb\t"},
                {"a_b", "a_b"},
                {"\xff=41", "\xff"
                            "A"},
            });
    }
}

TEST(TransferDecoding, Base64) {
    expectRows<std::string, std::string>(
        [](const std::string& s) { return TransferDecoding::base64(s); },
        {
            {"aGk=", "hi"},
            {"a", ""},
            {"aGVsb", "hel"},
            {" aGVs \r\n\r\nbG8=\n", "hello"},
            {"aGk=aGk=\r\nbG8=", "hi"},
            {"aGVs\r\nbG8=\r\n\r\n_______________\r\nList footer\r\n", "hello"},
            {"aGVs\r\nbG8*!\n", "hel"},
            {"aGVs\nbG8\n-- \nsig", "hello"},
            {"not: base64\naGk=", "hi"},
            {"AP8A/w==", std::string("\x00\xff\x00\xff", 4)},
            {"***\n", ""},
        });
    EXPECT_EQ(TransferDecoding::decode("aGk=", "base64"), "hi");
    EXPECT_EQ(TransferDecoding::decode("a=3Db", "quoted-printable"), "a=b");
    for (const char* other : {"7bit", "binary", "x-uuencode", "BASE64", ""}) {
        EXPECT_EQ(TransferDecoding::decode("a=3Db", other), "a=3Db") << other;
    }
}

TEST(PercentDecodeAndMimeTypes, Rows) {
    expectRows<std::string, std::string>(
        [](const std::string& s) { return PercentDecode::bytes(s); },
        {{"%e2%82%AC", "\xe2\x82\xac"},
         {"a%20b", "a b"},
         {"%4", "%4"},
         {"%zz", "%zz"},
         {"100%", "100%"},
         {"%%41", "%A"},
         {"%00", std::string(1, '\0')}});
    expectRows<std::string, std::string>(
        [](const std::string& s) { return std::string(MimeTypes::ext(s)); },
        {{"IMAGE/JPEG", "jpg"},
         {"message/rfc822", "eml"},
         {"text/calendar", "ics"},
         {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "xlsx"},
         {"image/jpeg ", ""}});
}

TEST(TextTrim, Trims) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        // input, blanks trimmed, blanks and line ends trimmed
        {" \ta b\t ", "a b", "a b"},
        {"\r\n a \n", "\r\n a \n", "a"},
        {"\xc2\xa0x\xe3\x80\x80", "x", "x"},
        {"\xe2\x80\xa8x", "\xe2\x80\xa8x", "x"},
        {"\xc3\xa9", "\xc3\xa9", "\xc3\xa9"},
        {"x\xa0", "x\xa0", "x\xa0"},
        {" \xc2\xa0 ", "", ""},
    };
    for (const auto& [input, blanks, blanksAndNewlines] : rows) {
        SCOPED_TRACE(input);
        EXPECT_EQ(TextTrim::whitespace(input), blanks);
        EXPECT_EQ(TextTrim::whitespaceAndNewlines(input), blanksAndNewlines);
    }
    EXPECT_EQ(TextTrim::asciiLower("ÉA-b"), "Éa-b");
    EXPECT_TRUE(TextTrim::equalsIgnoringCase("UTF-8", "utf-8"));
    EXPECT_FALSE(TextTrim::equalsIgnoringCase("utf-8", "utf-80"));
}

} // namespace
} // namespace qs
