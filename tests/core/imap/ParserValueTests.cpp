// IMAPValue's accessors, the tokens() utility and the error texts.

#include "imap/IMAPResponseParser.h"

#include "ParserValueBuilders.h"

#include <gtest/gtest.h>
#include <string>

namespace qs {
namespace {

using namespace qs::test;

TEST(ParserValue, StringTextFallsBackToLatin1) {
    // A lone 0xE9 isn't UTF-8; read as Latin-1 it is "é", never nothing.
    EXPECT_EQ(str("\xE9").text(), "\xC3\xA9");
    EXPECT_EQ(str("a\xFF\x80").text(), "a\xC3\xBF\xC2\x80");
    EXPECT_EQ(str("\xE9").data(), "\xE9"); // the bytes themselves stay as they are
}

TEST(ParserValue, EqualityByKindAndPayload) {
    EXPECT_NE(atom("x"), str("x"));
    EXPECT_NE(atom("NIL"), nil());
    EXPECT_NE(list({}), nil());
    EXPECT_NE(list({atom("a")}), list({atom("a"), atom("a")}));
    EXPECT_EQ(list({list({str("a")})}), list({list({str("a")})}));
    EXPECT_NE(list({list({str("a")})}), list({list({str("b")})}));
}

TEST(ParserValue, TakeDataMovesTheBytesOut) {
    auto values = IMAPResponseParser::tokens("(BODY[] {6}\r\nbody!! UID 4)");
    ASSERT_EQ(values.size(), 1u);
    auto items = values[0].items();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[1].takeData(), "body!!");
    EXPECT_EQ(items[1].data(), "");
    EXPECT_EQ(items[3].takeData(), "4");
    EXPECT_EQ(values[0].takeData(), std::nullopt);
    EXPECT_EQ(nil().takeData(), std::nullopt);
}

TEST(ParserValue, TokensReadsLikeAnUntaggedBody) {
    EXPECT_EQ(IMAPResponseParser::tokens("a (b c) \"d\" {1}\r\ne NIL"),
              (std::vector<IMAPValue>{atom("a"), list({atom("b"), atom("c")}), str("d"), str("e"),
                                      nil()}));
    EXPECT_TRUE(IMAPResponseParser::tokens("").empty());
    EXPECT_TRUE(IMAPResponseParser::tokens("   ").empty());
    // No response structure: a leading `*` or `+` is just an atom here.
    EXPECT_EQ(IMAPResponseParser::tokens("* OK"), (std::vector<IMAPValue>{atom("*"), atom("OK")}));
    EXPECT_THROW(IMAPResponseParser::tokens("(a"), IMAPParseError);
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
    std::string closed = "* " + std::string(depth, '(') + "x" + std::string(depth, ')');
    IMAPResponse response = IMAPResponseParser::parse(closed);
    const IMAPValue* value = &response.untagged()->values.at(0);
    std::size_t levels = 0;
    while (value->isList()) {
        ASSERT_EQ(value->items().size(), 1u);
        value = &value->items()[0];
        ++levels;
    }
    EXPECT_EQ(levels, depth);
    EXPECT_EQ(*value, atom("x"));

    std::string open = "* " + std::string(depth, '(') + "a (b) ((c)";
    EXPECT_THROW(IMAPResponseParser::parse(open), IMAPParseError);
}

} // namespace
} // namespace qs
