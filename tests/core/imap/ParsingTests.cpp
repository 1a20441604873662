#include "imap/IMAPDate.h"
#include "imap/IMAPError.h"
#include "imap/IMAPFetchItem.h"
#include "imap/IMAPQuote.h"
#include "imap/IMAPResponseParser.h"
#include "imap/IMAPResponseReader.h"
#include "imap/ModifiedUTF7.h"
#include "imap/UIDSet.h"
#include "support/ReaderOutcomes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <unicode/timezone.h>
#include <variant>
#include <vector>

namespace qs {
namespace {

using V = IMAPValue;
IMAPResponse untagged(std::initializer_list<IMAPValue> values) {
    return IMAPResponse::Untagged{std::vector<IMAPValue>(values)};
}

using Tagged = IMAPResponse::Tagged;
using UntaggedStatus = IMAPResponse::UntaggedStatus;
using Continuation = IMAPResponse::Continuation;

using Outcome = test::ReaderOutcome;
using Row = std::pair<std::string, Outcome>;

TEST(ParserTable, ParsesOrFailsWithItsText) {
    const std::string longTail(200, 'x');
    const Row rows[] = {
        {"A1 OK [CAPABILITY IMAP4rev1 UIDPLUS] done",
         Tagged{"A1", IMAPStatus::ok, "CAPABILITY IMAP4rev1 UIDPLUS", "done"}},
        {"M0001 nO [ALERT] wrong password",
         Tagged{"M0001", IMAPStatus::no, "ALERT", "wrong password"}},
        {"t1 Bye x", Tagged{"t1", IMAPStatus::bye, std::nullopt, "x"}},
        {"A1 OK [BADCHARSET [x] y] z", Tagged{"A1", IMAPStatus::ok, "BADCHARSET [x] y", "z"}},
        {"A1 OK [X]text", Tagged{"A1", IMAPStatus::ok, "X", "text"}},
        {"A1 OK done [X]", Tagged{"A1", IMAPStatus::ok, std::nullopt, "done [X]"}},
        {"tAg.1+ ok x", Tagged{"tAg.1+", IMAPStatus::ok, std::nullopt, "x"}},
        {"* OK [UIDVALIDITY 3", UntaggedStatus{IMAPStatus::ok, "UIDVALIDITY 3", ""}},
        {"* PREAUTH hello", UntaggedStatus{IMAPStatus::preauth, std::nullopt, "hello"}},
        {"* OK[x] y", untagged({V::atom("OK[x]"), V::atom("y")})},
        {"* NIL nil \"NIL\" nIl", untagged({V::nil(), V::nil(), V::string("NIL"), V::nil()})},
        {"* n\xC4\xB1l", untagged({V::nil()})},
        {"* FLAGS(\\Seen)", untagged({V::atom("FLAGS"), V::list({V::atom("\\Seen")})})},
        {"* LIST (\\HasNoChildren) \"/\" \"a\\\"b\"",
         untagged({V::atom("LIST"), V::list({V::atom("\\HasNoChildren")}), V::string("/"),
                   V::string("a\"b")})},
        {"* ((a) (b (c)) ())",
         untagged({V::list({V::list({V::atom("a")}),
                            V::list({V::atom("b"), V::list({V::atom("c")})}), V::list({})})})},
        {"* a] b [c d", untagged({V::atom("a] b [c"), V::atom("d")})},
        {"* 1 FETCH (BODY[HEADER.FIELDS (SUBJECT)] {2}\r\nhi)",
         untagged({V::atom("1"), V::atom("FETCH"),
                   V::list({V::atom("BODY[HEADER.FIELDS (SUBJECT)]"), V::string("hi")})})},
        {"* a{b\"c<d>", untagged({V::atom("a{b\"c<d>")})},
        {"* A\tB", untagged({V::atom("A\tB")})},
        {"* \xFF"
         "a",
         untagged({V::atom("\xEF\xBF\xBD"
                           "a")})},
        {"* \"a\\\\b\\x\\\"\"", untagged({V::string("a\\bx\"")})},
        {"* \"\xE9\xFF\"", untagged({V::string("\xE9\xFF")})},
        {"* X {11}\r\na\r\n{99}\r\nbc Y",
         untagged({V::atom("X"), V::string("a\r\n{99}\r\nbc"), V::atom("Y")})},
        {"* X {3+}\r\nabc", untagged({V::atom("X"), V::string("abc")})},
        {"* X {3}abc", untagged({V::atom("X"), V::string("abc")})},
        {"* {003}\r\nabc", untagged({V::string("abc")})},
        {"* ({1}\r\na {2}\r\nbc)", untagged({V::list({V::string("a"), V::string("bc")})})},
        {"+   x  ", Continuation{"x  "}},
        {"+ \xFF", Continuation{"\xEF\xBF\xBD"}},
        {"", "empty response"},
        {" A1 OK", "empty response"},
        {"A1 HELLO", "bad tagged response: A1 HELLO"},
        {"A1 OK\tx", "bad tagged response: A1 OK\tx"},
        {"A1 " + longTail, "bad tagged response: A1 " + longTail.substr(0, 77)},
        // 79 ASCII bytes then "éé": the 80-byte cut falls inside the first é.
        {"A1 " + std::string(76, 'y') + "\xC3\xA9\xC3\xA9",
         "bad tagged response: A1 " + std::string(76, 'y') + "\xEF\xBF\xBD"},
        {"* 1 X)", "unexpected character )"},
        {"* A\nB", "unexpected character \n"},
        {"* \"abc", "unterminated string"},
        {"* \"abc\\\"", "unterminated string"},
        {"* (a b", "unterminated list"},
        {"* {", "bad literal"},
        {"* {99999999999999999999}\r\nab", "bad literal"},
        {"* {3x}\r\nabc", "bad literal close"},
        {"* {5}\r\nabc", "short literal"},
        {"* {9223372036854775807}\r\nabc", "short literal"},
    };
    for (const auto& [raw, expected] : rows) {
        try {
            EXPECT_EQ(Row::second_type(IMAPResponseParser::parse(raw)), expected) << raw;
        } catch (const IMAPParseError& error) {
            EXPECT_EQ(Row::second_type(error.description()), expected) << raw;
        }
    }
}

TEST(ParserValue, AccessorsTokensAndDeepNesting) {
    // A lone 0xE9 isn't UTF-8; read as Latin-1 it is "é", never nothing; the bytes stay.
    EXPECT_EQ(V::string("a\xE9\xFF").text(), "a\xC3\xA9\xC3\xBF");
    EXPECT_EQ(V::string("\xE9").data(), "\xE9");
    EXPECT_NE(V::atom("x"), V::string("x"));
    EXPECT_NE(V::atom("NIL"), V::nil());
    EXPECT_NE(V::list({}), V::nil());
    EXPECT_NE(V::list({V::list({V::string("a")})}), V::list({V::list({V::string("b")})}));

    auto values = IMAPResponseParser::tokens("(BODY[] {6}\r\nbody!! UID 4)");
    ASSERT_EQ(values.size(), 1u);
    auto items = values[0].items();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[1].takeData(), "body!!");
    EXPECT_EQ(items[1].data(), "");
    EXPECT_EQ(items[3].takeData(), "4");
    EXPECT_EQ(values[0].takeData(), std::nullopt);
    EXPECT_EQ(V::nil().takeData(), std::nullopt);

    // Read like an untagged body, but a leading `*` or `+` is just an atom here.
    EXPECT_EQ(IMAPResponseParser::tokens("* (b c) \"d\" {1}\r\ne NIL"),
              (std::vector<IMAPValue>{V::atom("*"), V::list({V::atom("b"), V::atom("c")}),
                                      V::string("d"), V::string("e"), V::nil()}));
    EXPECT_TRUE(IMAPResponseParser::tokens("   ").empty());
    EXPECT_THROW(IMAPResponseParser::tokens("a b)"), IMAPParseError);

    // A server can send any nesting depth; reading and dropping it must not use the call stack.
    constexpr std::size_t depth = 200000;
    IMAPResponse response =
        IMAPResponseParser::parse("* " + std::string(depth, '(') + "x" + std::string(depth, ')'));
    const IMAPValue* value = &response.untagged()->values.at(0);
    std::size_t levels = 0;
    for (; value->isList(); value = &value->items()[0]) {
        ASSERT_EQ(value->items().size(), 1u);
        ++levels;
    }
    EXPECT_EQ(levels, depth);
    EXPECT_EQ(*value, V::atom("x"));
    EXPECT_THROW(IMAPResponseParser::parse("* " + std::string(depth, '(') + "a (b) ((c)"),
                 IMAPParseError);
}

using test::drain;

std::vector<Outcome> feedInPieces(std::string_view stream, const std::vector<std::size_t>& cuts) {
    IMAPResponseReader reader;
    std::vector<Outcome> out;
    std::size_t from = 0;
    for (std::size_t cut : cuts) {
        reader.append(stream.substr(from, cut - from));
        from = cut;
        drain(reader, out);
    }
    reader.append(stream.substr(from));
    drain(reader, out);
    EXPECT_EQ(reader.bufferedByteCount(), 0u);
    return out;
}

TEST(ReaderFraming, RawResponsesAndLiteralMarkers) {
    std::vector<std::pair<std::string, std::vector<std::string>>> rows = {
        {"* 1 FETCH (BODY[] {4}\r\na\r\nb)\r\nA1 OK x\n\nA2 OK y\r\r\n",
         {"* 1 FETCH (BODY[] {4}\r\na\r\nb)", "A1 OK x", "", "A2 OK y\r"}},
        // The literal's last byte is `{`, and the next line reads "5}": the `{` is not in it.
        {"* X {1}\r\n{5}\r\nA1 OK\r\n", {"* X {1}\r\n{5}", "A1 OK"}},
        {"* X {3}\r\nabc)", {}},
        {"* X {3}\r\nabc)\n", {"* X {3}\r\nabc)"}},
    };
    // Each line is followed by "abc\r\n": a marker pulls those 3 bytes (and the line end after
    // them) into the same response, no marker leaves them as a second response.
    for (const auto& [line, isMarker] :
         std::vector<std::pair<std::string, bool>>{{"* X {3}", true},
                                                   {"* X {3+}", true},
                                                   {"{3}", true},
                                                   {"A1 OK see {3}", true},
                                                   {"* X {0003}", true},
                                                   {"* X {}", false},
                                                   {"* X {+}", false},
                                                   {"* X 3}", false},
                                                   {"* X {x3}", false},
                                                   {"* X {3} ", false},
                                                   {"* X {3++}", false},
                                                   {"* X {99999999999999999999}", false},
                                                   {"* X {3} Y", false},
                                                   {"3}", false}}) {
        rows.push_back({line + "\r\nabc\r\n", isMarker ? std::vector<std::string>{line + "\r\nabc"}
                                                       : std::vector<std::string>{line, "abc"}});
    }
    for (const auto& [stream, raws] : rows) {
        IMAPResponseReader reader;
        reader.append(stream);
        std::vector<std::string> out;
        while (auto raw = reader.nextRawResponse()) {
            out.push_back(*raw);
        }
        EXPECT_EQ(out, raws) << stream;
    }
}

TEST(ReaderFraming, LiteralsAndLinesHaveACeiling) {
    const std::string line(IMAPResponseReader::lineLimit - 2, 'a');
    std::string manyLiterals = "* 1 FETCH (X";
    while (manyLiterals.size() <= 2 * IMAPResponseReader::lineLimit) {
        manyLiterals += " {1}\r\nx";
    }
    const std::size_t none = IMAPResponseReader::defaultLiteralLimit;
    const std::tuple<std::size_t, std::vector<std::string>, std::string> rows[] = {
        {none, {"* 1 FETCH (BODY[] {9223372036854775807}\r\nabc"}, "bad literal"},
        {100, {"* 1 FETCH (BODY[] {101}\r\n"}, "bad literal"},
        {100, {"* 1 FETCH (BODY[] {100}\r\n"}, ""},
        {none, {line + "\r\n"}, ""},
        {none, {line, "aaa"}, "unexpected end"},
        {none, {line + "a\r\n"}, "unexpected end"},
        {none, {manyLiterals}, "unexpected end"},
    };
    for (const auto& [literalLimit, pieces, error] : rows) {
        IMAPResponseReader reader;
        reader.setLiteralLimit(literalLimit);
        std::string got;
        try {
            for (const auto& piece : pieces) {
                reader.append(piece);
            }
        } catch (const IMAPParseError& parse) {
            got = parse.description();
        }
        EXPECT_EQ(got, error) << pieces[0].substr(0, 40);
    }
}

std::string body(std::size_t size) {
    std::string out;
    while (out.size() < size) {
        out += "line " + std::to_string(out.size()) + " {12}\r\n";
    }
    out.resize(size);
    return out;
}

TEST(ReaderLiteral, ReceivedIntoItsAreaOrBeyondTheReserveLimit) {
    const std::string stream = "* OK hi\r\n* 1 FETCH (BODY[] {70000}\r\n" + body(70000) +
                               " BODY[TEXT] {3}\r\nabc)\r\n* 2 FETCH (UID 3)\r\nM1 OK\r\n";
    const std::vector<Outcome> expected = feedInPieces(stream, {});
    ASSERT_EQ(expected.size(), 4u);
    for (std::size_t most : {1, 5, 4096, 65536, 262144}) {
        IMAPResponseReader reader;
        std::vector<Outcome> out;
        std::size_t at = 0;
        for (std::size_t turn = 1; at < stream.size(); ++turn) {
            std::span<char> area = reader.receiveArea(most);
            ASSERT_GE(area.size(), 1u);
            ASSERT_LE(area.size(), most);
            std::size_t before = reader.bufferedByteCount();
            std::size_t count =
                turn % 5 == 0 ? 0 : std::min({area.size(), stream.size() - at, 1 + turn % most});
            std::copy_n(stream.data() + at, count, area.data());
            reader.commit(count);
            at += count;
            ASSERT_EQ(reader.bufferedByteCount(), before + count);
            drain(reader, out);
        }
        EXPECT_EQ(out, expected) << "receives of at most " << most;
        EXPECT_EQ(reader.bufferedByteCount(), 0u);
    }

    // Announced beyond the reserve limit, then cut off.
    const std::size_t size = IMAPResponseReader::literalReserveLimit + 12345;
    const std::string text = body(size);
    const std::string head = "* 3 FETCH (BODY[] {" + std::to_string(size) + "}\r\n";
    IMAPResponseReader reader;
    reader.append(head);
    for (std::size_t at = 0; at < size; at += 0x40000) {
        reader.append(std::string_view(text).substr(at, 0x40000));
        ASSERT_EQ(reader.next(), std::nullopt);
    }
    EXPECT_EQ(reader.bufferedByteCount(), head.size() + size);
    reader.append(std::string_view(")\r\n"));
    auto response = reader.next();
    ASSERT_NE(response, std::nullopt);
    auto taken = response->untagged()->values.at(2).items()[1].takeData();
    EXPECT_TRUE(taken && *taken == text);
    EXPECT_EQ(reader.bufferedByteCount(), 0u);

    const std::string cutOff = "* 2 FETCH (BODY[] {100}\r\nonly twenty bytes...";
    reader.append(cutOff);
    EXPECT_EQ(reader.next(), std::nullopt);
    EXPECT_EQ(reader.nextRawResponse(), std::nullopt);
    EXPECT_EQ(reader.bufferedByteCount(), cutOff.size());
}

// Awkward on purpose: literals with line ends and markers inside, a literal right at a line
// end, {n+}, a lone LF, an empty line (an error), a malformed response, a literal of length 0.
const std::string kAwkward =
    "* OK [CAPABILITY IMAP4rev1] ready\r\n"
    "* 1 FETCH (UID 7 BODY[] {13}\r\nab\r\n{3}\r\n\r\ncd FLAGS (\\Seen))\r\n"
    "* 2 FETCH (BODY[HEADER] {3+}\r\n}\r\n BODY[TEXT] {0}\r\n)\n"
    "\r\n"
    "* (broken\r\n"
    "+ go on\r\n"
    "* LIST () \"/\" {4}\r\nI\"\\x\r\n"
    "M0001 oK [READ-ONLY] done\r\n";

TEST(ReaderSplit, EveryCutGivesTheWholeStreamsSequence) {
    const std::vector<Outcome> expected = {
        IMAPResponse::UntaggedStatus{IMAPStatus::ok, "CAPABILITY IMAP4rev1", "ready"},
        untagged({V::atom("1"), V::atom("FETCH"),
                  V::list({V::atom("UID"), V::atom("7"), V::atom("BODY[]"),
                           V::string("ab\r\n{3}\r\n\r\ncd"), V::atom("FLAGS"),
                           V::list({V::atom("\\Seen")})})}),
        untagged({V::atom("2"), V::atom("FETCH"),
                  V::list({V::atom("BODY[HEADER]"), V::string("}\r\n"), V::atom("BODY[TEXT]"),
                           V::string("")})}),
        std::string("empty response"),
        std::string("unterminated list"),
        IMAPResponse::Continuation{"go on"},
        untagged({V::atom("LIST"), V::list({}), V::string("/"), V::string("I\"\\x")}),
        IMAPResponse::Tagged{"M0001", IMAPStatus::ok, "READ-ONLY", "done"},
    };
    ASSERT_EQ(feedInPieces(kAwkward, {}), expected);
    // A literal marker read across elsewhere than at a line's end: in a quoted string, a
    // bracket, a status text, a continuation, after a literal.
    for (const std::string& stream : std::vector<std::string>{
             kAwkward, "* LIST () \"a {5}\r\nb\"c d\" x\r\n",
             "* 1 FETCH (BODY[{4}\r\n] x] {2}\r\nab)\r\n", "* OK [ALERT] see {6}\r\nthe rest\r\n",
             "A1 OK done {3}\r\nabc more\r\n",
             "A1 HELLO {4}\r\nthis line is quoted in the error up "
             "to eighty bytes, literal included\r\n",
             "+ go {2}\r\non\r\n", "* X {3}abc {2}\r\nde {1}\r\nf\r\n",
             "* X {2}\r\nab{2}\r\ncd \"x\r\n",
             "* X ({1}\r\na ({2}\r\nbc) \"q\" {0}\r\n) {3}\r\n)))\r\n", "* X \"{3}\r\nab\"\"\r\n",
             "* X {2}\r\n\\ \"\r\n"}) {
        SCOPED_TRACE(stream);
        IMAPResponseReader raw;
        raw.append(stream);
        std::vector<Outcome> whole;
        while (auto response = raw.nextRawResponse()) {
            try {
                whole.push_back(IMAPResponseParser::parse(*response));
            } catch (const IMAPParseError& error) {
                whole.push_back(error.description());
            }
        }
        ASSERT_EQ(feedInPieces(stream, {}), whole);
        for (std::size_t i = 0; i <= stream.size(); ++i) {
            ASSERT_EQ(feedInPieces(stream, {i}), whole) << "cut at " << i;
            for (std::size_t j = i; j <= stream.size(); j += 7) {
                ASSERT_EQ(feedInPieces(stream, {i, j}), whole) << "cuts at " << i << ", " << j;
            }
        }
        for (std::size_t size = 1; size <= stream.size(); ++size) {
            std::vector<std::size_t> cuts;
            for (std::size_t at = size; at < stream.size(); at += size) {
                cuts.push_back(at);
            }
            ASSERT_EQ(feedInPieces(stream, cuts), whole) << "chunks of " << size;
        }
    }
}

TEST(UIDSetQuoteUTF7AndErrorText, Rows) {
    const std::pair<std::vector<uint32_t>, const char*> sets[] = {
        {{}, ""},
        {{5, 1, 2, 3, 3, 9, 10}, "1:3,5,9:10"},
        {{4294967294u, 4294967295u, 1}, "1,4294967294:4294967295"},
    };
    for (const auto& [uids, expected] : sets) {
        EXPECT_EQ(UIDSet::string(uids), expected) << ::testing::PrintToString(uids);
    }
    const std::pair<std::string, bool> literals[] = {
        {"tab\there", false}, {std::string("nul\0x", 5), false},
        {"line\nfeed", true}, {"carriage\rreturn", true},
        {"\x7f", false},      {"\x80", true}};
    for (const auto& [text, literal] : literals) {
        EXPECT_EQ(IMAPQuote::needsLiteral(text), literal) << text;
    }
    EXPECT_EQ(IMAPQuote::quoted(R"(a"b\c)"), R"("a\"b\\c")");
    EXPECT_EQ(IMAPQuote::quoted(""), R"("")");
    const std::pair<const char*, const char*> names[] = {
        {"A&-B", "A&B"},
        {"&Jjo", "&Jjo"},
        {"a&!!!-b", "a&!!!-b"},
        {"~peter/mail/&U,BTFw-/&ZeVnLIqe-", "~peter/mail/台北/日本語"},
        {"&2D3eAA-", "\xF0\x9F\x98\x80"}, // a surrogate pair: U+1F600
        {"&2D0-", "&2D0-"},               // an unpaired high surrogate
        {"&3AA-", "&3AA-"},               // a lone low surrogate, U+DC00
        {"&2D0AYQ-", "&2D0AYQ-"},         // a high surrogate before no low one
        {"&AGE-", "a"},
    };
    for (const auto& [encoded, decoded] : names) {
        EXPECT_EQ(ModifiedUTF7::decode(encoded), decoded) << encoded;
    }
    EXPECT_STREQ(IMAPError::insecureNotAllowed().what(),
                 "Unencrypted connections are only allowed to 127.0.0.1 in developer mode.");
}

TEST(IMAPDate, ParsesStrictlyAndFormatsInTheDevicesZone) {
    // The device's zone applies to texts without one; fix it for these rows.
    std::unique_ptr<icu::TimeZone> saved(icu::TimeZone::createDefault());
    icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone("Europe/Berlin"));
    const std::pair<const char*, std::optional<int64_t>> rows[] = {
        {"17-Jul-1996 02:44:25 -0700", 837596665},
        {" \t17-jul-1996 02:44:25 -0700\t ", 837596665},
        {"05-Mar-2024 10:00:00 +0100", 1709629200},
        {"17-Jul-1996 02:44:25", std::nullopt},
        {"31-Feb-2024 10:00:00 +0000", std::nullopt},
        {"17-Jul-1996 02:44:25 -0700 junk", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [text, seconds] : rows) {
        std::optional<Date> date = IMAPDate::parse(text);
        EXPECT_EQ(date ? std::optional<int64_t>(unixSeconds(*date)) : std::nullopt, seconds)
            << "\"" << text << "\"";
    }
    EXPECT_EQ(IMAPDate::searchString(dateFromUnix(1709632800)), "5-Mar-2024");
    // 23:30 UTC on 4 March is already 5 March in Berlin.
    EXPECT_EQ(IMAPDate::searchString(dateFromUnix(1709595000)), "5-Mar-2024");
    EXPECT_EQ(IMAPDate::searchString(dateFromUnix(1735689599)), "1-Jan-2025");
    icu::TimeZone::setDefault(*saved);
}

TEST(IMAPFetchItem, ReadsPairsAndSkipsWhatIsNoFetch) {
    const std::pair<const char*, std::optional<IMAPFetchItem>> rows[] = {
        // Keys in any case, the last of a repeat wins, a lone key ignored.
        {"1 fetch (uid 3 Uid 4 body[header] \"h\" UNKNOWN x RFC822.SIZE)",
         IMAPFetchItem{1, 4, std::nullopt, std::nullopt, {}, "h"}},
        // Unreadable numbers and dates give nothing.
        {"2 FETCH (UID -1 RFC822.SIZE x INTERNALDATE \"x\")",
         IMAPFetchItem{2, std::nullopt, std::nullopt, std::nullopt, {}, std::nullopt}},
        {"3 FETCH (UID 1 BODY[] NIL)", IMAPFetchItem{3, 1, {}, {}, {}, std::nullopt}},
        {"3 EXPUNGE", std::nullopt},
        {"3 FETCH UID", std::nullopt},
        {"\"3\" FETCH (UID 1)", std::nullopt},
    };
    for (const auto& [line, expected] : rows) {
        std::vector<IMAPValue> values = IMAPResponseParser::tokens(line);
        EXPECT_EQ(IMAPFetchItem::from(values), expected) << line;
    }
}

} // namespace
} // namespace qs
