// Framing: when a response is complete, what its raw bytes are, and how the buffer is kept.

#include "imap/IMAPResponseReader.h"

#include "ParserValueBuilders.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace qs {
namespace {

using namespace qs::test;

std::vector<std::string> rawResponses(IMAPResponseReader& reader) {
    std::vector<std::string> out;
    while (auto raw = reader.nextRawResponse()) {
        out.push_back(*raw);
    }
    return out;
}

TEST(ReaderFraming, RawResponseKeepsInnerLineEndsDropsTheLast) {
    // A lone LF ends a line too; a CR before CR LF stays in the line.
    IMAPResponseReader reader;
    reader.append(std::string_view("* 1 FETCH (BODY[] {4}\r\na\r\nb)\r\nA1 OK x\n\nA2 OK y\r\r\n"));
    EXPECT_EQ(rawResponses(reader), (std::vector<std::string>{"* 1 FETCH (BODY[] {4}\r\na\r\nb)",
                                                              "A1 OK x", "", "A2 OK y\r"}));
}

TEST(ReaderFraming, LiteralEndingAtTheEndOfTheBytesWaitsForALineEnd) {
    IMAPResponseReader reader;
    reader.append(std::string_view("* X {3}\r\nabc"));
    EXPECT_EQ(reader.nextRawResponse(), std::nullopt);
    reader.append(std::string_view(")"));
    EXPECT_EQ(reader.nextRawResponse(), std::nullopt);
    reader.append(std::string_view("\n"));
    EXPECT_EQ(reader.nextRawResponse(), "* X {3}\r\nabc)");
}

struct MarkerRow {
    std::string name;
    std::string line;
    bool isMarker;
};

TEST(ReaderFraming, LiteralMarkerTest) {
    // Each line is followed by "abc\r\n": a marker pulls those 3 bytes (and the line end after
    // them) into the same response, no marker leaves them as a second response.
    const MarkerRow rows[] = {
        {"plain", "* X {3}", true},
        {"non_synchronising", "* X {3+}", true},
        {"line_is_only_marker", "{3}", true},
        {"braces_in_ordinary_text", "A1 OK see {3}", true},
        {"leading_zeros", "* X {0003}", true},
        {"no_digits", "* X {}", false},
        {"plus_no_digits", "* X {+}", false},
        {"no_open_brace", "* X 3}", false},
        {"letter_before_digits", "* X {x3}", false},
        {"space_after_marker", "* X {3} ", false},
        {"two_pluses", "* X {3++}", false},
        {"overflowing_length", "* X {99999999999999999999}", false},
        {"not_at_the_end", "* X {3} Y", false},
        {"digits_reach_line_start", "3}", false},
    };
    for (const auto& row : rows) {
        IMAPResponseReader reader;
        reader.append(row.line + "\r\nabc\r\n");
        auto raws = rawResponses(reader);
        if (row.isMarker) {
            EXPECT_EQ(raws, std::vector<std::string>{row.line + "\r\nabc"}) << row.name;
        } else {
            EXPECT_EQ(raws, (std::vector<std::string>{row.line, "abc"})) << row.name;
        }
    }
}

TEST(ReaderFraming, BraceBeforeTheLineIsNotPartOfAMarker) {
    // The literal's last byte is `{`, and the next line reads "5}": the `{` is not in that line.
    IMAPResponseReader reader;
    reader.append(std::string_view("* X {1}\r\n{5}\r\nA1 OK\r\n"));
    EXPECT_EQ(rawResponses(reader), (std::vector<std::string>{"* X {1}\r\n{5}", "A1 OK"}));
}

TEST(ReaderFraming, ParseFailureConsumesTheResponse) {
    IMAPResponseReader reader;
    reader.append(std::string_view("* (a\r\n\r\n* OK fine\r\n"));
    EXPECT_THROW(reader.next(), IMAPParseError);
    try {
        reader.next();
        ADD_FAILURE() << "empty line parsed";
    } catch (const IMAPParseError& error) {
        EXPECT_EQ(error.description(), "empty response");
    }
    EXPECT_EQ(reader.next(),
              IMAPResponse(IMAPResponse::UntaggedStatus{IMAPStatus::ok, std::nullopt, "fine"}));
    EXPECT_EQ(reader.bufferedByteCount(), 0u);
}

// What a server could otherwise grow without end: refused as it arrives, the limits themselves
// still accepted.
TEST(ReaderFraming, LiteralsAndLinesHaveACeiling) {
    const std::string line(IMAPResponseReader::lineLimit - 2, 'a');
    struct Case {
        const char* name;
        std::size_t literalLimit;
        std::vector<std::string> pieces;
        std::optional<std::string> error;
    };
    const Case cases[] = {
        {"HugeLiteral",
         IMAPResponseReader::defaultLiteralLimit,
         {"* 1 FETCH (BODY[] {9223372036854775807}\r\nabc"},
         "bad literal"},
        {"LiteralAboveTheSetLimit", 100, {"* 1 FETCH (BODY[] {101}\r\n"}, "bad literal"},
        {"LiteralAtTheSetLimit", 100, {"* 1 FETCH (BODY[] {100}\r\n"}, std::nullopt},
        {"LineAtTheLimit", IMAPResponseReader::defaultLiteralLimit, {line + "\r\n"}, std::nullopt},
        {"LineWithoutEnd",
         IMAPResponseReader::defaultLiteralLimit,
         {line, "aaa"},
         "unexpected end"},
        {"LineAboveTheLimitInOnePiece",
         IMAPResponseReader::defaultLiteralLimit,
         {line + "a\r\n"},
         "unexpected end"},
        {"EndlessSmallLiterals",
         IMAPResponseReader::defaultLiteralLimit,
         {"* 1 FETCH (X",
          [] {
              std::string many;
              while (many.size() <= 2 * IMAPResponseReader::lineLimit) {
                  many += " {1}\r\nx";
              }
              return many;
          }()},
         "unexpected end"},
    };
    for (const auto& c : cases) {
        IMAPResponseReader reader;
        reader.setLiteralLimit(c.literalLimit);
        std::optional<std::string> error;
        try {
            for (const auto& piece : c.pieces) {
                reader.append(std::string_view(piece));
            }
        } catch (const IMAPParseError& parse) {
            error = parse.description();
        }
        EXPECT_EQ(error, c.error) << c.name;
    }
}

/// One response of exactly `size` bytes including its CR LF.
std::string responseOfSize(std::size_t size) {
    std::string head = "* X {";
    std::string literalLength;
    // "* X {n}\r\n" + n bytes + "\r\n": find n so that the total is `size`.
    for (std::size_t n = size; n > 0; --n) {
        std::string candidate = head + std::to_string(n) + "}\r\n";
        if (candidate.size() + n + 2 == size) {
            return candidate + std::string(n, 'b') + "\r\n";
        }
    }
    return {};
}

TEST(ReaderFraming, CompactionAfterMoreThanOneMebibyteConsumed) {
    const std::string pending = "* 9 FETCH (BODY[] {10}\r\n0123";
    {
        IMAPResponseReader reader;
        reader.append(responseOfSize(0x100000 + 1) + pending);
        EXPECT_NE(reader.next(), std::nullopt);
        EXPECT_EQ(reader.start(), 0u);
        EXPECT_EQ(reader.buffer(), pending);
        reader.append(std::string_view("456789)\r\n"));
        EXPECT_EQ(reader.next(),
                  untagged({atom("9"), atom("FETCH"), list({atom("BODY[]"), str("0123456789")})}));
    }
    {
        // Exactly 1 MiB consumed is not yet over the threshold.
        IMAPResponseReader reader;
        reader.append(responseOfSize(0x100000) + pending);
        EXPECT_NE(reader.nextRawResponse(), std::nullopt);
        EXPECT_EQ(reader.start(), 0x100000u);
        EXPECT_EQ(reader.bufferedByteCount(), pending.size());
        reader.append(std::string_view("456789)\r\n"));
        EXPECT_EQ(reader.nextRawResponse(), pending + "456789)");
        EXPECT_EQ(reader.start(), 0u);
    }
}

TEST(ReaderFraming, AppendOverloadsAgree) {
    const std::string stream = "* 1 EXISTS\r\n* OK [UIDNEXT 5] x\r\n";
    IMAPResponseReader viewReader, spanReader, movedReader;
    viewReader.append(std::string_view(stream));
    spanReader.append(std::as_bytes(std::span(stream.data(), stream.size())));
    movedReader.append(std::string(stream.substr(0, 5)));
    movedReader.append(std::string(stream.substr(5)));
    for (int i = 0; i < 2; ++i) {
        auto expected = viewReader.next();
        ASSERT_NE(expected, std::nullopt);
        EXPECT_EQ(spanReader.next(), expected);
        EXPECT_EQ(movedReader.next(), expected);
    }
}

} // namespace
} // namespace qs
