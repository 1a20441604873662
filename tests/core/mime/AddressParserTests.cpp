#include "mime/AddressParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qs;
using Addresses = std::vector<MailAddress>;

TEST(AddressParser, Parse) {
    struct Row {
        const char* name;
        std::string input;
        Addresses addresses;
    };
    const std::vector<Row> rows{
        {"quoted comma", "\"Doe, Jane\" <jane@x>, bob@y", {{"Doe, Jane", "jane@x"}, {"", "bob@y"}}},
        {"group", "Team: a@x, b@y;", {{"", "a@x"}, {"", "b@y"}}},
        {"colon before angle keeps name", "Mailing list: <a@x>", {{"Mailing list:", "a@x"}}},
        {"comment name", "jane@x (Jane Doe)", {{"Jane Doe", "jane@x"}}},
        {"encoded name", "=?UTF-8?Q?Andr=C3=A9?= <a@x>", {{"André", "a@x"}}},
        {"encoded name in quotes", "\"=?UTF-8?B?w6k=?=\" <e@x>", {{"é", "e@x"}}},
        {"encoded name in comment", "a@x (=?UTF-8?Q?Andr=C3=A9?=)", {{"André", "a@x"}}},
        {"empty group", "undisclosed-recipients:;", {}},
        {"no address", "plain text", {}},
        {"empty", "", {}},
        {"semicolon separates", "a@x; b@y", {{"", "a@x"}, {"", "b@y"}}},
        {"comma inside angle kept", "<a,b@x>", {{"", "a,b@x"}}},
        {"comma inside comment kept", "a@x (Doe, Jane)", {{"Doe, Jane", "a@x"}}},
        {"quote inside comment has no meaning",
         "a@x (it\"s), b@y",
         {{"it\"s", "a@x"}, {"", "b@y"}}},
        {"escaped quotes in name", "\"say \\\"hi\\\"\" <a@x>", {{"say \"hi\"", "a@x"}}},
        {"address case kept", "Bob <Bob@Example.COM>", {{"Bob", "Bob@Example.COM"}}},
        {"folded across lines",
         "Jane\r\n <jane@x>,\r\n bob@y",
         {{"Jane", "jane@x"}, {"", "bob@y"}}},
        {"stray closing brackets", "a@x>>, b@y))", {{"", "a@x>>"}, {"", "b@y))"}}},
        {"empty pieces", ",,a@x,,", {{"", "a@x"}}},
        {"angle without closing after last open", "Jane <a@x> <b", {{"", "Jane <a@x> <b"}}},
        {"last angle pair wins", "x <a@x> <b@y>", {{"x <a@x>", "b@y"}}},
        {"empty angle", "Jane <>", {{"Jane", ""}}},
        // An unclosed comment runs to the end: nothing after it splits, and it names no one.
        {"unbalanced comment", "a@x (Jane, b@y", {{"", "a@x (Jane, b@y"}}},
        {"comment closed before it opens", "b@y) x (c", {{"", "b@y) x (c"}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(AddressParser::parse(row.input), row.addresses);
    }
}

TEST(AddressParser, One) {
    EXPECT_EQ(AddressParser::one("  a@x  "), (MailAddress{"", "a@x"}));
    EXPECT_EQ(AddressParser::one("Team:\t a@x"), (MailAddress{"", "a@x"}));
    EXPECT_EQ(AddressParser::one("\"Jane\" <jane@x>"), (MailAddress{"Jane", "jane@x"}));
    EXPECT_EQ(AddressParser::one("\" <a@x>"), (MailAddress{"", "a@x"}));
    EXPECT_EQ(AddressParser::one("Team:"), std::nullopt);
    EXPECT_EQ(AddressParser::one("nobody"), std::nullopt);
    EXPECT_EQ(AddressParser::one(""), std::nullopt);
}
