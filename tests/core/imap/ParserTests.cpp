// The response parser: one raw response per row, with the response or the error text it must
// give; values and their accessors.

#include "imap/IMAPResponseParser.h"

#include "ParserValueBuilders.h"

#include <gtest/gtest.h>
#include <string>
#include <variant>

namespace qs {
namespace {

using namespace qs::test;
using Tagged = IMAPResponse::Tagged;
using UntaggedStatus = IMAPResponse::UntaggedStatus;
using Continuation = IMAPResponse::Continuation;

// A raw response, and the response or the error text it gives.
using Row = std::pair<std::string, std::variant<IMAPResponse, std::string>>;

const std::string longTail(200, 'x');
// 79 ASCII bytes then "éé": the 80-byte cut falls inside the first é.
const std::string cutInsideUTF8 = "A1 " + std::string(76, 'y') + "\xC3\xA9\xC3\xA9";

TEST(ParserTable, ParsesOrFailsWithItsText) {
    const Row rows[] = {
        // Tagged responses: tag kept as sent, status in any case, optional code, free text.
        {"A1 OK [CAPABILITY IMAP4rev1 UIDPLUS] done",
         Tagged{"A1", IMAPStatus::ok, "CAPABILITY IMAP4rev1 UIDPLUS", "done"}},
        {"M0001 nO [ALERT] wrong password",
         Tagged{"M0001", IMAPStatus::no, "ALERT", "wrong password"}},
        {"t1 Bye x", Tagged{"t1", IMAPStatus::bye, std::nullopt, "x"}},
        {"A1 OK [BADCHARSET [x] y] z", Tagged{"A1", IMAPStatus::ok, "BADCHARSET [x] y", "z"}},
        {"A1 OK [X]text", Tagged{"A1", IMAPStatus::ok, "X", "text"}},
        {"A1 OK done [X]", Tagged{"A1", IMAPStatus::ok, std::nullopt, "done [X]"}},
        {"tAg.1+ ok x", Tagged{"tAg.1+", IMAPStatus::ok, std::nullopt, "x"}},

        // Untagged status responses.
        {"* OK [UIDVALIDITY 3", UntaggedStatus{IMAPStatus::ok, "UIDVALIDITY 3", ""}},
        {"* PREAUTH hello", UntaggedStatus{IMAPStatus::preauth, std::nullopt, "hello"}},
        {"* bYe shutting down", UntaggedStatus{IMAPStatus::bye, std::nullopt, "shutting down"}},

        // Untagged data: values after the `*`.
        {"* OK[x] y", untagged({atom("OK[x]"), atom("y")})},
        {"* NIL nil \"NIL\" nIl", untagged({nil(), nil(), str("NIL"), nil()})},
        {"* n\xC4\xB1l", untagged({nil()})},
        {"* FLAGS(\\Seen)", untagged({atom("FLAGS"), list({atom("\\Seen")})})},
        {"* LIST (\\HasNoChildren) \"/\" \"a\\\"b\"",
         untagged({atom("LIST"), list({atom("\\HasNoChildren")}), str("/"), str("a\"b")})},
        {"* LIST () NIL INBOX", untagged({atom("LIST"), list({}), nil(), atom("INBOX")})},
        {"* ((a) (b (c)) ())",
         untagged({list({list({atom("a")}), list({atom("b"), list({atom("c")})}), list({})})})},
        {"* a] b c", untagged({atom("a] b c")})},
        {"* a] b [c d", untagged({atom("a] b [c"), atom("d")})},
        {"* 1 FETCH (BODY[HEADER.FIELDS (SUBJECT)] {2}\r\nhi)",
         untagged(
             {atom("1"), atom("FETCH"), list({atom("BODY[HEADER.FIELDS (SUBJECT)]"), str("hi")})})},
        {"* a{b\"c<d>", untagged({atom("a{b\"c<d>")})},
        {"* A\tB", untagged({atom("A\tB")})},
        {"* \xFF"
         "a",
         untagged({atom("\xEF\xBF\xBD"
                        "a")})},

        // Quoted strings: raw bytes, backslash keeps the next byte whatever it is.
        {"* \"a\\\\b\\x\\\"\"", untagged({str("a\\bx\"")})},
        {"* \"a (b) [c\"", untagged({str("a (b) [c")})},
        {"* \"\xE9\xFF\"", untagged({str("\xE9\xFF")})},

        // Literals.
        {"* X {11}\r\na\r\n{99}\r\nbc Y", untagged({atom("X"), str("a\r\n{99}\r\nbc"), atom("Y")})},
        {"* X {3+}\r\nabc", untagged({atom("X"), str("abc")})},
        {"* X {3}\nabc", untagged({atom("X"), str("abc")})},
        {"* X {3}abc", untagged({atom("X"), str("abc")})},
        {"* {003}\r\nabc", untagged({str("abc")})},
        {"* ({1}\r\na {2}\r\nbc)", untagged({list({str("a"), str("bc")})})},

        // Continuations.
        {"+ go ahead", Continuation{"go ahead"}},
        {"+   x  ", Continuation{"x  "}},
        {"+ \xFF", Continuation{"\xEF\xBF\xBD"}},

        // Failures, each with its fixed text.
        {"", "empty response"},
        {" A1 OK", "empty response"},
        {"A1 HELLO", "bad tagged response: A1 HELLO"},
        {"A1 OK\tx", "bad tagged response: A1 OK\tx"},
        {"A1 " + longTail, "bad tagged response: A1 " + longTail.substr(0, 77)},
        {cutInsideUTF8, "bad tagged response: A1 " + std::string(76, 'y') + "\xEF\xBF\xBD"},
        {"* 1 X)", "unexpected character )"},
        {"* A\nB", "unexpected character \n"},
        {"* A \rB", "unexpected character \r"},
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

TEST(ParserValue, AccessorsAndTokens) {
    // A lone 0xE9 isn't UTF-8; read as Latin-1 it is "é", never nothing; the bytes stay.
    EXPECT_EQ(str("a\xE9\xFF").text(), "a\xC3\xA9\xC3\xBF");
    EXPECT_EQ(str("\xE9").data(), "\xE9");
    // Equal by kind and payload, nested too: what the tables above rely on.
    EXPECT_NE(atom("x"), str("x"));
    EXPECT_NE(atom("NIL"), nil());
    EXPECT_NE(list({}), nil());
    EXPECT_NE(list({list({str("a")})}), list({list({str("b")})}));

    auto values = IMAPResponseParser::tokens("(BODY[] {6}\r\nbody!! UID 4)");
    ASSERT_EQ(values.size(), 1u);
    auto items = values[0].items();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[1].takeData(), "body!!");
    EXPECT_EQ(items[1].data(), "");
    EXPECT_EQ(items[3].takeData(), "4");
    EXPECT_EQ(values[0].takeData(), std::nullopt);
    EXPECT_EQ(nil().takeData(), std::nullopt);

    // Read like an untagged body, but a leading `*` or `+` is just an atom here.
    EXPECT_EQ(IMAPResponseParser::tokens("* (b c) \"d\" {1}\r\ne NIL"),
              (std::vector<IMAPValue>{atom("*"), list({atom("b"), atom("c")}), str("d"), str("e"),
                                      nil()}));
    EXPECT_TRUE(IMAPResponseParser::tokens("   ").empty());
    try {
        IMAPResponseParser::tokens("a b)");
        ADD_FAILURE() << "no error";
    } catch (const IMAPParseError& error) {
        EXPECT_EQ(error.description(), "unexpected character )");
    }
}

TEST(ParserValue, DeepNestingNeitherRecursesNorCrashes) {
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
    EXPECT_EQ(*value, atom("x"));
    EXPECT_THROW(IMAPResponseParser::parse("* " + std::string(depth, '(') + "a (b) ((c)"),
                 IMAPParseError);
}

} // namespace
} // namespace qs
