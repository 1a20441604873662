// The response reader: when a response is complete, what its raw bytes are, literals that travel
// apart from their line, limits, and the same responses however the bytes are cut.
#include "imap/IMAPResponseParser.h"
#include "imap/IMAPResponseReader.h"

#include "ParserValueBuilders.h"
#include "support/Corpus.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <variant>
#include <vector>

namespace qs {
namespace {

using namespace qs::test;

// A response the reader gave, or the description of the error it threw instead.
using Outcome = std::variant<IMAPResponse, std::string>;

// Everything `reader` has complete, errors as their descriptions.
void drain(IMAPResponseReader& reader, std::vector<Outcome>& out) {
    for (;;) {
        try {
            auto response = reader.next();
            if (!response) {
                return;
            }
            out.emplace_back(std::move(*response));
        } catch (const IMAPParseError& error) {
            out.emplace_back(error.description());
        }
    }
}

// `stream` fed to a fresh reader in pieces ending at `cuts` (ascending), drained after each; a
// reader that took everything holds no byte at the end.
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

std::vector<std::string> rawResponses(IMAPResponseReader& reader) {
    std::vector<std::string> out;
    while (auto raw = reader.nextRawResponse()) {
        out.push_back(*raw);
    }
    return out;
}

TEST(ReaderFraming, RawResponses) {
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        // A lone LF ends a line too; a CR before CR LF stays in the line; inner line ends of a
        // literal stay.
        {"* 1 FETCH (BODY[] {4}\r\na\r\nb)\r\nA1 OK x\n\nA2 OK y\r\r\n",
         {"* 1 FETCH (BODY[] {4}\r\na\r\nb)", "A1 OK x", "", "A2 OK y\r"}},
        // The literal's last byte is `{`, and the next line reads "5}": the `{` is not in it.
        {"* X {1}\r\n{5}\r\nA1 OK\r\n", {"* X {1}\r\n{5}", "A1 OK"}},
        // A literal ending at the end of the bytes waits for a line end.
        {"* X {3}\r\nabc)", {}},
        {"* X {3}\r\nabc)\n", {"* X {3}\r\nabc)"}},
    };
    for (const auto& [stream, raws] : rows) {
        IMAPResponseReader reader;
        reader.append(stream);
        EXPECT_EQ(rawResponses(reader), raws) << stream;
    }
}

TEST(ReaderFraming, LiteralMarkers) {
    // Each line is followed by "abc\r\n": a marker pulls those 3 bytes (and the line end after
    // them) into the same response, no marker leaves them as a second response.
    const std::pair<std::string, bool> rows[] = {
        {"* X {3}", true},       {"* X {3+}", true},   {"{3}", true},
        {"A1 OK see {3}", true}, {"* X {0003}", true}, {"* X {}", false},
        {"* X {+}", false},      {"* X 3}", false},    {"* X {x3}", false},
        {"* X {3} ", false},     {"* X {3++}", false}, {"* X {99999999999999999999}", false},
        {"* X {3} Y", false},    {"3}", false},
    };
    for (const auto& [line, isMarker] : rows) {
        IMAPResponseReader reader;
        reader.append(line + "\r\nabc\r\n");
        auto expected = isMarker ? std::vector<std::string>{line + "\r\nabc"}
                                 : std::vector<std::string>{line, "abc"};
        EXPECT_EQ(rawResponses(reader), expected) << line;
    }
}

// What a server could otherwise grow without end: refused as it arrives, the limits themselves
// still accepted.
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

/// Mail-like bytes with line ends, braces and markers that must not matter.
std::string body(std::size_t size) {
    std::string out;
    while (out.size() < size) {
        out += "line " + std::to_string(out.size()) + " {12}\r\n";
    }
    out.resize(size);
    return out;
}

TEST(ReaderLiteral, ReceivedIntoItsAreaAsIntoAppend) {
    // Receives of every size up to what the area offers, failed ones (nothing written)
    // between them: the bytes land in literals or lines as if appended.
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
}

TEST(ReaderLiteral, AnnouncedBeyondTheReserveLimitOrCutOff) {
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

    // Cut off mid literal: nothing, and what arrived is kept.
    const std::string cutOff = "* 2 FETCH (BODY[] {100}\r\nonly twenty bytes...";
    reader.append(cutOff);
    EXPECT_EQ(reader.next(), std::nullopt);
    EXPECT_EQ(reader.nextRawResponse(), std::nullopt);
    EXPECT_EQ(reader.bufferedByteCount(), cutOff.size());
}

TEST(ReaderLiteral, ReadAcrossOtherwiseParsesAsTheWholeBytes) {
    // Each stream's first response must parse as its raw bytes do when given whole: the held
    // literal is read as a quoted string's bytes, inside a bracketed atom, as free text, as the
    // quoted start of a bad tagged line, or next to literals within a line.
    const char* streams[] = {
        "* LIST () \"a {5}\r\nb\"c d\" x\r\n",
        "* 1 FETCH (BODY[{4}\r\n] x] {2}\r\nab)\r\n",
        "* OK [ALERT] see {6}\r\nthe rest\r\n",
        "A1 OK done {3}\r\nabc more\r\n",
        "A1 HELLO {4}\r\nthis line is quoted in the error up to eighty bytes, literal included\r\n",
        "+ go {2}\r\non\r\n",
        "* X {3}abc {2}\r\nde {1}\r\nf\r\n",
        "* X {2}\r\nab{2}\r\ncd \"x\r\n",
        "* X ({1}\r\na ({2}\r\nbc) \"q\" {0}\r\n) {3}\r\n)))\r\n",
        "* X {3}\r\na\"b\" {+}\r\n",
        "* X \"{3}\r\nab\"\"\r\n",
        "* X [ {3}\r\n] ] Y\r\n",
        "* X {2}\r\n\\ \"\r\n",
    };
    for (std::string stream : streams) {
        IMAPResponseReader whole;
        whole.append(stream);
        std::vector<Outcome> expected;
        while (auto raw = whole.nextRawResponse()) {
            try {
                expected.push_back(IMAPResponseParser::parse(*raw));
            } catch (const IMAPParseError& error) {
                expected.push_back(error.description());
            }
        }
        IMAPResponseReader reader;
        reader.append(stream);
        std::vector<Outcome> out;
        drain(reader, out);
        EXPECT_EQ(out, expected) << stream;
        EXPECT_EQ(reader.bufferedByteCount(), whole.bufferedByteCount()) << stream;
    }
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
    const std::vector<Outcome> whole = feedInPieces(kAwkward, {});
    const std::vector<Outcome> expected = {
        IMAPResponse::UntaggedStatus{IMAPStatus::ok, "CAPABILITY IMAP4rev1", "ready"},
        untagged({atom("1"), atom("FETCH"),
                  list({atom("UID"), atom("7"), atom("BODY[]"), str("ab\r\n{3}\r\n\r\ncd"),
                        atom("FLAGS"), list({atom("\\Seen")})})}),
        untagged({atom("2"), atom("FETCH"),
                  list({atom("BODY[HEADER]"), str("}\r\n"), atom("BODY[TEXT]"), str("")})}),
        std::string("empty response"),
        std::string("unterminated list"),
        IMAPResponse::Continuation{"go on"},
        untagged({atom("LIST"), list({}), str("/"), str("I\"\\x")}),
        IMAPResponse::Tagged{"M0001", IMAPStatus::ok, "READ-ONLY", "done"},
    };
    ASSERT_EQ(whole, expected);
    for (std::size_t i = 0; i <= kAwkward.size(); ++i) {
        ASSERT_EQ(feedInPieces(kAwkward, {i}), whole) << "cut at " << i;
        for (std::size_t j = i; j <= kAwkward.size(); j += 7) {
            ASSERT_EQ(feedInPieces(kAwkward, {i, j}), whole) << "cuts at " << i << ", " << j;
        }
    }
    for (std::size_t size = 1; size <= kAwkward.size(); ++size) {
        std::vector<std::size_t> cuts;
        for (std::size_t at = size; at < kAwkward.size(); at += size) {
            cuts.push_back(at);
        }
        ASSERT_EQ(feedInPieces(kAwkward, cuts), whole) << "chunks of " << size;
    }
}

// Every message of the real-world corpus, sent as FETCH literals in uneven chunks, comes out
// byte for byte: real mail holds bare LFs, long lines, `{n}`-like text and 8-bit bytes. The
// stream runs to megabytes, so the buffer is compacted many times on the way.
TEST(ReaderCorpus, EveryMessageArrivesWholeAsALiteral) {
    std::vector<test::CorpusMessage> messages = test::corpusMessages();
    ASSERT_GT(messages.size(), 100u);
    std::string stream;
    for (std::size_t i = 0; i < messages.size(); ++i) {
        stream += "* " + std::to_string(i + 1) + " FETCH (UID 1 BODY[] {" +
                  std::to_string(messages[i].bytes.size()) + "}\r\n" + messages[i].bytes + ")\r\n";
    }
    IMAPResponseReader reader;
    std::size_t received = 0;
    unsigned state = 7;
    for (std::size_t at = 0; at < stream.size();) {
        state = state * 1103515245u + 12345u;
        std::size_t length = 1 + (state >> 8) % 70000;
        reader.append(std::string_view(stream).substr(at, length));
        at += length;
        while (auto response = reader.next()) {
            ASSERT_LT(received, messages.size());
            std::optional<std::string> body =
                response->untagged()->values.at(2).items()[3].takeData();
            EXPECT_TRUE(body && *body == messages[received].bytes) << messages[received].name;
            ++received;
        }
    }
    EXPECT_EQ(received, messages.size());
    EXPECT_EQ(reader.bufferedByteCount(), 0u);
}

} // namespace
} // namespace qs
