#include "mime/AddressParser.h"
#include "mime/Charsets.h"
#include "mime/EncodedWords.h"
#include "mime/HTMLText.h"
#include "mime/HeaderParams.h"
#include "mime/MailAddress.h"
#include "mime/MailDate.h"
#include "mime/MessageDate.h"
#include "mime/MimeTypes.h"
#include "mime/PercentDecode.h"
#include "mime/TextTrim.h"
#include "mime/TransferDecoding.h"
#include "support/Regex.h"
#include "support/Unicode.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <thread>
#include <unicode/locid.h>
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
            {"x; a*=it's", {"x", Params{{"a", "it's"}}}},
            {"x; a*=a'b'c'd", {"x", Params{{"a", "a'b'c'd"}}}},
        });
}

TEST(TransferDecoding, DecodeByEncoding) {
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"quoted-printable", "a=3Db", "a=b"},
        {"quoted-printable", "=c3=a9", "\xc3\xa9"},
        {"quoted-printable", "a=\r\nb", "ab"},
        {"quoted-printable", "a= \t\r\nb", "ab"},
        {"quoted-printable", "a=3Z", "a=3Z"},
        {"quoted-printable", "100%=", "100%"},
        {"quoted-printable", "x=  ", "x"},
        {"quoted-printable", "x=\r", "x"},
        {"quoted-printable", "a=\rb", "a=\rb"},
        {"quoted-printable", "a=4", "a=4"},
        {"quoted-printable", "a  \r\nb\t", "a  \r\nb\t"},
        {"quoted-printable", "a_b", "a_b"},
        {"quoted-printable", "\xff=41", "\xff\x41"},
        {"base64", "aGk=", "hi"},
        {"base64", "a", ""},
        {"base64", "aGVsb", "hel"},
        {"base64", " aGVs \r\n\r\nbG8=\n", "hello"},
        {"base64", "aGk=aGk=\r\nbG8=", "hi"},
        {"base64", "aGVs\r\nbG8=\r\n\r\n_______________\r\nList footer\r\n", "hello"},
        {"base64", "aGVs\r\nbG8*!\n", "hel"},
        {"base64", "aGVs\nbG8\n-- \nsig", "hello"},
        {"base64", "not: base64\naGk=", "hi"},
        {"base64", "AP8A/w==", std::string("\x00\xff\x00\xff", 4)},
        {"base64", "***\n", ""},
        // Other encodings, and names the caller hasn't lowered, leave the bytes alone.
        {"7bit", "a=3Db", "a=3Db"},
        {"x-uuencode", "a=3Db", "a=3Db"},
        {"BASE64", "aGk=", "aGk="},
        {"", "a=3Db", "a=3Db"},
    };
    for (const auto& [encoding, input, output] : rows) {
        SCOPED_TRACE(std::string(encoding) + ": " + input);
        EXPECT_EQ(TransferDecoding::decode(input, encoding), output);
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
        {{"IMAGE/JPEG", "jpg"}, {"image/jpeg ", ""}});
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
    EXPECT_FALSE(TextTrim::equalsIgnoringCase("utf-8", "utf-80"));
}

int64_t utc(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900, tm.tm_mon = month - 1, tm.tm_mday = day;
    tm.tm_hour = hour, tm.tm_min = minute, tm.tm_sec = second;
    return timegm(&tm);
}

TEST(Charsets, DecodeByLabelWithFallbacks) {
    const std::tuple<std::optional<std::string>, std::string, std::string> rows[] = {
        {"windows-1252", "\x93\x71\x75\x6f\x74\x65\x64\x94\x20\x96\x20\x80", "“quoted” – €"},
        {"Shift_JIS", "\x93\xfa\x96\x7b\x8c\xea\x82\xcc", "日本語の"},
        // Japanese mailers switch back to ASCII and at once to JIS again where lines were folded.
        {"iso-2022-jp", "\x1b$BF|\x1b(B\x1b$BK\\\x1b(B\x1b(B!", "日本!"},
        {"GB18030", "\xd6\xd0\xce\xc4\x20\xa2\xe3\x20\x81\x34\xd2\x38", "中文 € ᠀"},
        {"windows-874", "\xa1", "ก"},
        {"UTF-7", "+AKM-1 +ZeVnLA-", "£1 日本"},
        {"ks_c_5601-1987", "\xc7\xd1\xb1\xb9", "한국"},
        {"gb2312", "\xd6\xd0\x81\x34\xd2\x38", "中᠀"}, // really GB18030, as senders do
        {"\"UTF8\"", "\xc3\xa9", "é"},
        // Missing, unknown or wrong labels: valid UTF-8 stays, anything else is Windows-1252.
        {"us-ascii", "\xe9", "é"},
        {"x-unknown", "\xc3\xa9t\xc3\xa9", "été"},
        {std::nullopt, "caf\xe9", "café"},
        {"shift_jis", "\xc3\xa9\xff", "\xc3\x83\xc2\xa9\xc3\xbf"},
        {"utf-8", "\xc7\xd1", "Ç\xc3\x91"},
        // Windows-1252's five unassigned bytes map to the C1 controls of the same number (as in
        // the WHATWG table), so the accented letters around them survive.
        {"utf-8", "caf\xe9 \x81\x8d\x8f\x90\x9d",
         "caf\xc3\xa9 \xc2\x81\xc2\x8d\xc2\x8f\xc2\x90\xc2\x9d"},
        {"utf-8", std::string("a\0b", 3), std::string("a\0b", 3)},
    };
    for (const auto& [label, bytes, text] : rows) {
        SCOPED_TRACE(label.value_or("(none)") + ": " + bytes);
        EXPECT_EQ(Charsets::string(bytes, label), text);
    }
    const std::pair<std::optional<std::string_view>, std::optional<std::string>> labels[] = {
        {std::nullopt, std::nullopt}, {" \"\" ", std::nullopt}, {"x-no-such-charset", std::nullopt},
        {"US-ASCII", "UTF-8"},        {"ascii", "UTF-8"},       {"  utf-8 ", "UTF-8"},
    };
    for (const auto& [label, converter] : labels) {
        SCOPED_TRACE(label.value_or("(none)"));
        auto encoding = Charsets::encoding(label);
        EXPECT_EQ(encoding ? std::optional(encoding->converterName) : std::nullopt, converter);
    }
    EXPECT_EQ(Charsets::encoding("ks_c_5601-1987"), Charsets::encoding("euc-kr"));
}

TEST(Charsets, StrictDecodeRejectsIllFormedInput) {
    const std::pair<const char*, const char*> rows[] = {
        {"shift_jis", "\x93"},     // truncated pair
        {"utf-8", "\xc3"},         // truncated sequence
        {"utf-8", "\xed\xa0\x80"}, // a surrogate
        {"utf-7", "+2D3-"},        // lone high surrogate
    };
    for (const auto& [label, bytes] : rows) {
        SCOPED_TRACE(label);
        auto encoding = Charsets::encoding(label);
        ASSERT_TRUE(encoding);
        EXPECT_EQ(Charsets::decodeStrict(bytes, *encoding), std::nullopt);
    }
}

TEST(MailDate, Parse) {
    const std::pair<const char*, std::optional<int64_t>> rows[] = {
        {"Tue, 5 Mar 2024 10:00:00 +0100 (CET)", utc(2024, 3, 5, 9, 0, 0)},
        {"Tue, 5 Mar 24 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"5 Mar 49 10:00:00 +0000", utc(2049, 3, 5, 10, 0, 0)},
        {"5 Mar 50 10:00:00 +0000", utc(1950, 3, 5, 10, 0, 0)},
        {"Tue,  5 Mar 2024 10:00:00 GMT", utc(2024, 3, 5, 10, 0, 0)},
        {"Tue, 5 Mar 2024 10:00:00 EST", utc(2024, 3, 5, 15, 0, 0)},
        {"  Tue, 05 Mar 2024 23:59:59 +0530\r\n", utc(2024, 3, 5, 18, 29, 59)},
        {"Mon, 5 Mar 2024 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"Tue, 5 Mar 124 10:00:00 +0000", utc(2024, 3, 5, 10, 0, 0)},
        {"Tue, 5 Mar 2024 10:00:00", utc(2024, 3, 5, 10, 0, 0)},
        {"Thu,29 Apr 2012 10:00:00 +0200", utc(2012, 4, 29, 8, 0, 0)},
        {"5 Mar 2024 10:00:00 Q", utc(2024, 3, 5, 10, 0, 0)},
        {"Fri, 21 Nov 1997 09(comment):   55  :  06 -0600", utc(1997, 11, 21, 15, 55, 6)},
        {"tuesday, 5 march 2024 10:00 -0000", utc(2024, 3, 5, 10, 0, 0)},
        {"30 Jun 2012 23:59:60 +0000", utc(2012, 6, 30, 23, 59, 59)},
        {"30 Feb 2024 10:00:00", std::nullopt},
        {"5 Mar 2024 +0000", std::nullopt},
        {"2024-03-05", std::nullopt},
        {"Tue, 5 Mar 3609 10:00:00 +0000", std::nullopt},
        {"Tue, 5 Mar 1500 10:00:00 +0000", std::nullopt},
        {"Tue, 5 Mar 2024 10:00:00 +0000 xyz", std::nullopt},
    };
    for (const auto& [input, seconds] : rows) {
        auto date = MailDate::parse(input);
        EXPECT_EQ(date ? std::optional(unixSeconds(*date)) : std::nullopt, seconds) << input;
    }
    Date date = dateFromUnix(utc(2024, 3, 5, 10, 0, 7));
    EXPECT_EQ(MailDate::parse(MailDate::rfc5322(date)), date) << MailDate::rfc5322(date);
}

TEST(MailDate, EnglishMonthsReadUnderAnotherLocale) {
    icu::Locale saved = icu::Locale::getDefault();
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale("de_DE"), status);
    // Parsed on a fresh thread, whose formatters are made under the German default.
    std::optional<Date> date;
    std::thread([&] { date = MailDate::parse("Tue, 5 Mar 2024 10:00:00 +0000"); }).join();
    icu::Locale::setDefault(saved, status);
    ASSERT_TRUE(date.has_value());
    EXPECT_EQ(unixSeconds(*date), utc(2024, 3, 5, 10, 0, 0));
}

TEST(MessageDate, DateFieldThenNewestReceived) {
    const std::string relayed = "from a by b; Tue, 5 Mar 2024 10:00:00 +0000";
    const std::string delivered = "from b by c (x; y); Wed, 6 Mar 2024 09:00:00 +0000 (UTC)";
    const std::pair<std::vector<MIMEHeaderField>, std::optional<int64_t>> rows[] = {
        {{{"Received", delivered}, {"Date", "4 Mar 2024 08:00 +0000"}}, utc(2024, 3, 4, 8, 0, 0)},
        {{{"Received", relayed}, {"Received", delivered}, {"Date", "someday"}},
         utc(2024, 3, 6, 9, 0, 0)},
        {{{"Received", "from a by b"}, {"Received", relayed}}, utc(2024, 3, 5, 10, 0, 0)},
        {{{"Subject", "x"}}, std::nullopt},
    };
    for (const auto& [fields, seconds] : rows) {
        auto date = MessageDate::of(MIMEHeaders(fields));
        EXPECT_EQ(date ? std::optional(unixSeconds(*date)) : std::nullopt, seconds)
            << ::testing::PrintToString(fields);
    }
}

TEST(HTMLText, DecodeEntitiesAndEscape) {
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"numeric", "&#x41;&#66;", "AB"},
        {"upper X stays", "&#X41;", "&#X41;"},
        {"surrogate vanishes", "&#xD800;", ""},
        {"too large vanishes", "&#x110000;", ""},
        {"huge vanishes", "&#99999999999999999999;", ""},
        {"hex digits without x vanish", "&#4a;", ""},
        {"astral", "&#x1F600;", "\xf0\x9f\x98\x80"},
        {"named any case", "&AMP; &Mdash; &hellip;", "& \xe2\x80\x94 \xe2\x80\xa6"},
        {"joiners vanish", "a&zwnj;b&zwj;c", "abc"},
        {"unknown entity kept", "&eacute; &", "&eacute; &"},
        {"no semicolon kept", "&amp", "&amp"},
    };
    for (const auto& [name, input, output] : rows) {
        EXPECT_EQ(HTMLText::decodeEntities(input), output) << name;
    }
    EXPECT_EQ(HTMLText::escape("<a href=\"x\">&amp;</a> it's"),
              "&lt;a href=&quot;x&quot;&gt;&amp;amp;&lt;/a&gt; it's");
}

// The conversion written out as the literal sequence of regular expression replacements,
// as an oracle for the faster scans of the implementation.
std::string toPlainByRegularExpressions(std::string_view html) {
    using Steps = std::vector<std::pair<Regex, icu::UnicodeString>>;
    auto steps =
        [](std::initializer_list<std::tuple<const char16_t*, const char16_t*, bool>> list) {
            Steps out;
            for (const auto& [pattern, with, anyCase] : list) {
                out.emplace_back(
                    Regex(std::u16string_view(pattern), anyCase ? UREGEX_CASE_INSENSITIVE : 0),
                    icu::UnicodeString(with));
            }
            return out;
        };
    static const Steps markup = steps({{u"<style[^>]*>[\\s\\S]*?</style\\s*>", u" ", true},
                                       {u"<script[^>]*>[\\s\\S]*?</script\\s*>", u" ", true},
                                       {u"<head[^>]*>[\\s\\S]*?</head\\s*>", u" ", true},
                                       {u"<title[^>]*>[\\s\\S]*?</title\\s*>", u" ", true},
                                       {u"<!--[\\s\\S]*?-->", u" ", false},
                                       {u"<(br|/p|/div|/tr|/li|/h[1-6])[^>]*>", u"\n", true},
                                       {u"<[^>]+>", u" ", false}});
    static const Steps blanks =
        steps({{u"[ \\t\\u00a0]+", u" ", false}, {u"\\n\\s*\\n\\s*\\n+", u"\n\n", false}});
    icu::UnicodeString text = Unicode::fromUTF8(html);
    for (const auto& [regex, with] : markup) {
        text = regex.replaceAll(text, with);
    }
    text = Unicode::fromUTF8(HTMLText::decodeEntities(Unicode::toUTF8(text)));
    for (const auto& [regex, with] : blanks) {
        text = regex.replaceAll(text, with);
    }
    return std::string(TextTrim::whitespaceAndNewlines(Unicode::toUTF8(text)));
}

TEST(HTMLText, ToPlainAgreesWithTheRegularExpressions) {
    const std::vector<std::string_view> pieces{
        "<",     ">",    "/",        "br",    "BR",       "p",     "/P",     "div",    "/Div",
        "/tr",   "/li",  "/h3",      "/h7",   "h1",       "style", "STYLE",  "script", "head",
        "title", "<!--", "-->",      "&amp;", "&#65;",    "&#x;",  "&nbsp;", " ",      "\t",
        "\n",    "\r\n", "\xc2\xa0", "x",     "=\"a>b\"", "é",     "</",     "<>",     "!",
    };
    uint32_t state = 7;
    for (int round = 0; round < 3000; ++round) {
        std::string html;
        int count = 1 + int(state % 40);
        for (int k = 0; k < count; ++k) {
            state = state * 1103515245 + 12345;
            html += pieces[(state >> 16) % pieces.size()];
        }
        ASSERT_EQ(HTMLText::toPlain(html), toPlainByRegularExpressions(html)) << html;
    }
}

} // namespace
} // namespace qs
