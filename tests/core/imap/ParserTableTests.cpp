// One raw response per row, with the response or the error text it must give.

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

struct Row {
    std::string name;
    std::string raw;
    std::variant<IMAPResponse, std::string> expected; // the response, or an error's text

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

Row ok(std::string name, std::string raw, IMAPResponse response) {
    return {std::move(name), std::move(raw), std::move(response)};
}
Row fails(std::string name, std::string raw, std::string description) {
    return {std::move(name), std::move(raw), std::move(description)};
}

const std::string longTail(200, 'x');
// 79 ASCII bytes then "éé": the 80-byte cut falls inside the first é.
const std::string cutInsideUTF8 = "A1 " + std::string(76, 'y') + "\xC3\xA9\xC3\xA9";

std::vector<Row> rows() {
    return {
        // Tagged responses: tag kept as sent, status in any case, optional code, free text.
        ok("tagged_capability_code", "A1 OK [CAPABILITY IMAP4rev1 UIDPLUS] done",
           Tagged{"A1", IMAPStatus::ok, "CAPABILITY IMAP4rev1 UIDPLUS", "done"}),
        ok("tagged_lower_case", "a1 ok fine", Tagged{"a1", IMAPStatus::ok, std::nullopt, "fine"}),
        ok("tagged_mixed_case_no", "M0001 nO [ALERT] wrong password",
           Tagged{"M0001", IMAPStatus::no, "ALERT", "wrong password"}),
        ok("tagged_bye_preauth_words", "t1 Bye x",
           Tagged{"t1", IMAPStatus::bye, std::nullopt, "x"}),
        ok("tagged_no_text", "A2 OK", Tagged{"A2", IMAPStatus::ok, std::nullopt, ""}),
        ok("tagged_many_spaces", "A3   oK    [READ-WRITE]   SELECT  done ",
           Tagged{"A3", IMAPStatus::ok, "READ-WRITE", "SELECT  done "}),
        ok("tagged_nested_code", "A1 OK [BADCHARSET [x] y] z",
           Tagged{"A1", IMAPStatus::ok, "BADCHARSET [x] y", "z"}),
        ok("tagged_unclosed_nested_code", "A1 NO [A [B] c",
           Tagged{"A1", IMAPStatus::no, "A [B] c", ""}),
        ok("tagged_code_glued_to_text", "A1 OK [X]text", Tagged{"A1", IMAPStatus::ok, "X", "text"}),
        ok("tagged_empty_code", "A1 OK [] t", Tagged{"A1", IMAPStatus::ok, "", "t"}),
        ok("tagged_bracket_later_is_text", "A1 OK done [X]",
           Tagged{"A1", IMAPStatus::ok, std::nullopt, "done [X]"}),
        ok("tagged_odd_tag_kept", "tAg.1+ ok x",
           Tagged{"tAg.1+", IMAPStatus::ok, std::nullopt, "x"}),
        ok("tagged_text_with_line_break", "A1 OK a\r\nb",
           Tagged{"A1", IMAPStatus::ok, std::nullopt, "a\r\nb"}),

        // Untagged status responses.
        ok("untagged_unclosed_code", "* OK [UIDVALIDITY 3",
           UntaggedStatus{IMAPStatus::ok, "UIDVALIDITY 3", ""}),
        ok("untagged_ok_alone", "* OK", UntaggedStatus{IMAPStatus::ok, std::nullopt, ""}),
        ok("untagged_preauth", "* PREAUTH hello",
           UntaggedStatus{IMAPStatus::preauth, std::nullopt, "hello"}),
        ok("untagged_bye_mixed_case", "* bYe shutting down",
           UntaggedStatus{IMAPStatus::bye, std::nullopt, "shutting down"}),
        ok("untagged_no", "* no [TRYCREATE] x", UntaggedStatus{IMAPStatus::no, "TRYCREATE", "x"}),

        // Untagged data: values after the `*`.
        ok("status_word_glued_is_data", "* OK[x] y", untagged({atom("OK[x]"), atom("y")})),
        ok("star_alone", "*", untagged({})),
        ok("exists", "* 23 EXISTS", untagged({atom("23"), atom("EXISTS")})),
        ok("nil_any_case", "* NIL nil \"NIL\" nIl", untagged({nil(), nil(), str("NIL"), nil()})),
        ok("nil_unicode_upper_case", "* n\xC4\xB1l", untagged({nil()})),
        ok("nil_prefix_is_atom", "* NILS", untagged({atom("NILS")})),
        ok("flags_empty_list", "* FLAGS ()", untagged({atom("FLAGS"), list({})})),
        ok("atom_stops_at_paren", "* FLAGS(\\Seen)",
           untagged({atom("FLAGS"), list({atom("\\Seen")})})),
        ok("list_escaped_quote", "* LIST (\\HasNoChildren) \"/\" \"a\\\"b\"",
           untagged({atom("LIST"), list({atom("\\HasNoChildren")}), str("/"), str("a\"b")})),
        ok("list_nil_delimiter", "* LIST () NIL INBOX",
           untagged({atom("LIST"), list({}), nil(), atom("INBOX")})),
        ok("nested_lists", "* ((a) (b (c)) ())",
           untagged({list({list({atom("a")}), list({atom("b"), list({atom("c")})}), list({})})})),
        ok("stray_bracket_swallows_rest", "* a] b c", untagged({atom("a] b c")})),
        ok("stray_bracket_restored", "* a] b [c d", untagged({atom("a] b [c"), atom("d")})),
        ok("section_with_spaces_one_atom", "* 1 FETCH (BODY[HEADER.FIELDS (SUBJECT)] {2}\r\nhi)",
           untagged({atom("1"), atom("FETCH"),
                     list({atom("BODY[HEADER.FIELDS (SUBJECT)]"), str("hi")})})),
        ok("partial_section_one_atom", "* 1 FETCH (BODY[]<0> \"x\")",
           untagged({atom("1"), atom("FETCH"), list({atom("BODY[]<0>"), str("x")})})),
        ok("brace_and_quote_inside_atom", "* a{b\"c<d>", untagged({atom("a{b\"c<d>")})),
        ok("tab_is_no_separator", "* A\tB", untagged({atom("A\tB")})),
        ok("invalid_utf8_atom_repaired",
           "* \xFF"
           "a",
           untagged({atom("\xEF\xBF\xBD"
                          "a")})),

        // Quoted strings: raw bytes, backslash keeps the next byte whatever it is.
        ok("quoted_escapes", "* \"a\\\\b\\x\\\"\"", untagged({str("a\\bx\"")})),
        ok("quoted_keeps_spaces_parens", "* \"a (b) [c\"", untagged({str("a (b) [c")})),
        ok("quoted_raw_bytes", "* \"\xE9\xFF\"", untagged({str("\xE9\xFF")})),
        ok("quoted_then_atom", "* \"a\"b", untagged({str("a"), atom("b")})),

        // Literals.
        ok("fetch_literal", "* 1 FETCH (BODY[] {5}\r\nhello)",
           untagged({atom("1"), atom("FETCH"), list({atom("BODY[]"), str("hello")})})),
        ok("fetch_all_fields",
           "* 12 FETCH (UID 7 FLAGS (\\Seen) RFC822.SIZE 99 INTERNALDATE "
           "\"17-Jul-1996 02:44:25 -0700\" BODY[] {3}\r\nabc)",
           untagged({atom("12"), atom("FETCH"),
                     list({atom("UID"), atom("7"), atom("FLAGS"), list({atom("\\Seen")}),
                           atom("RFC822.SIZE"), atom("99"), atom("INTERNALDATE"),
                           str("17-Jul-1996 02:44:25 -0700"), atom("BODY[]"), str("abc")})})),
        ok("literal_holding_line_ends_and_marker", "* X {11}\r\na\r\n{99}\r\nbc Y",
           untagged({atom("X"), str("a\r\n{99}\r\nbc"), atom("Y")})),
        ok("literal_non_synchronising", "* X {3+}\r\nabc", untagged({atom("X"), str("abc")})),
        ok("literal_lone_line_feed", "* X {3}\nabc", untagged({atom("X"), str("abc")})),
        ok("literal_without_line_end", "* X {3}abc", untagged({atom("X"), str("abc")})),
        ok("literal_cr_only", "* X {3}\rabc", untagged({atom("X"), str("abc")})),
        ok("literal_empty", "* X {0}\r\n", untagged({atom("X"), str("")})),
        ok("literal_leading_zeros", "* {003}\r\nabc", untagged({str("abc")})),
        ok("two_literals", "* ({1}\r\na {2}\r\nbc)", untagged({list({str("a"), str("bc")})})),

        // Continuations.
        ok("continuation_alone", "+", Continuation{""}),
        ok("continuation_text", "+ go ahead", Continuation{"go ahead"}),
        ok("continuation_glued", "+go", Continuation{"go"}),
        ok("continuation_spaces_kept_after_text", "+   x  ", Continuation{"x  "}),
        ok("continuation_repaired", "+ \xFF", Continuation{"\xEF\xBF\xBD"}),

        // Failures, each with its fixed text.
        fails("empty", "", "empty response"),
        fails("leading_space", " A1 OK", "empty response"),
        fails("tagged_unknown_status", "A1 HELLO", "bad tagged response: A1 HELLO"),
        fails("tagged_missing_status", "A1", "bad tagged response: A1"),
        fails("tagged_status_with_tab", "A1 OK\tx", "bad tagged response: A1 OK\tx"),
        fails("tagged_quotes_80_bytes", "A1 " + longTail,
              "bad tagged response: A1 " + longTail.substr(0, 77)),
        fails("tagged_quote_cut_repaired", cutInsideUTF8,
              "bad tagged response: A1 " + std::string(76, 'y') + "\xEF\xBF\xBD"),
        fails("unexpected_paren", "* 1 X)", "unexpected character )"),
        fails("unexpected_line_feed", "* A\nB", "unexpected character \n"),
        fails("unexpected_carriage_return", "* A \rB", "unexpected character \r"),
        fails("unterminated_string", "* \"abc", "unterminated string"),
        fails("unterminated_string_final_backslash", "* \"abc\\", "unterminated string"),
        fails("unterminated_string_escaped_quote", "* \"abc\\\"", "unterminated string"),
        fails("unterminated_list", "* (a b", "unterminated list"),
        fails("unterminated_nested_list", "* ((a) (b)", "unterminated list"),
        fails("literal_no_digits", "* {", "bad literal"),
        fails("literal_empty_braces", "* {}", "bad literal"),
        fails("literal_plus_no_digits", "* {+}", "bad literal"),
        fails("literal_overflow", "* {99999999999999999999}\r\nab", "bad literal"),
        fails("literal_bad_close", "* {3x}\r\nabc", "bad literal close"),
        fails("literal_no_close", "* {3", "bad literal close"),
        fails("literal_short", "* {5}\r\nabc", "short literal"),
        fails("literal_huge_announced", "* {9223372036854775807}\r\nabc", "short literal"),
        fails("literal_in_list_short", "* (BODY[] {4}\r\nabc", "short literal"),
    };
}

class ParserTable : public testing::TestWithParam<Row> {};

TEST_P(ParserTable, ParsesOrFailsWithItsText) {
    const Row& row = GetParam();
    if (const auto* expected = std::get_if<IMAPResponse>(&row.expected)) {
        EXPECT_EQ(IMAPResponseParser::parse(row.raw), *expected) << "raw: " << row.raw;
    } else {
        try {
            IMAPResponse response = IMAPResponseParser::parse(row.raw);
            ADD_FAILURE() << "parsed as " << response;
        } catch (const IMAPParseError& error) {
            EXPECT_EQ(error.description(), std::get<std::string>(row.expected));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, ParserTable, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<Row>& info) { return info.param.name; });

} // namespace
} // namespace qs
