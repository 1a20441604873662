// Literals announced at line ends travel apart from their response's text, straight into strings
// of their own: cut anywhere, announced beyond the reserve limit, cut off, or read by the
// parser as something other than a literal, they must give exactly what the whole bytes give.

#include "imap/IMAPClient.h"
#include "imap/IMAPResponseParser.h"
#include "imap/IMAPResponseReader.h"

#include "ParserValueBuilders.h"
#include "ReaderOutcomes.h"
#include "support/FakeIMAPServer.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <variant>
#include <vector>

namespace qs {
namespace {

using namespace qs::test;

/// What the parser makes of one raw response given whole.
Outcome parsedWhole(std::string_view raw) {
    try {
        return IMAPResponseParser::parse(raw);
    } catch (const IMAPParseError& error) {
        return error.description();
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
    const std::string first = body(70000);
    const std::string stream = "* OK hi\r\n* 1 FETCH (BODY[] {70000}\r\n" + first +
                               " BODY[TEXT] {3}\r\nabc)\r\n* 2 FETCH (UID 3)\r\nM1 OK\r\n";
    IMAPResponseReader appended;
    appended.append(stream);
    std::vector<Outcome> expected;
    drain(appended, expected);
    ASSERT_EQ(expected.size(), 4u);
    for (std::size_t most : {1, 2, 5, 100, 4096, 65536, 262144}) {
        IMAPResponseReader reader;
        std::vector<Outcome> out;
        std::size_t at = 0;
        std::size_t turn = 0;
        while (at < stream.size()) {
            std::span<char> area = reader.receiveArea(most);
            ASSERT_GE(area.size(), 1u);
            ASSERT_LE(area.size(), most);
            std::size_t before = reader.bufferedByteCount();
            if (++turn % 5 == 0) {
                reader.commit(0); // a receive that failed
                ASSERT_EQ(reader.bufferedByteCount(), before);
                continue;
            }
            std::size_t count = std::min({area.size(), stream.size() - at, 1 + turn % most});
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

TEST(ReaderLiteral, CountsItsBytesWhileTheyArriveAndWhenConsumed) {
    const std::string first = "* 1 FETCH (BODY[] {10}\r\n0123";
    const std::string rest = "456789)\r\n";
    const std::string partial = "* 2 EX";
    IMAPResponseReader reader;
    reader.append(first);
    EXPECT_EQ(reader.bufferedByteCount(), first.size());
    EXPECT_EQ(reader.buffer(), first);
    reader.append(rest + partial);
    EXPECT_EQ(reader.bufferedByteCount(), first.size() + rest.size() + partial.size());
    EXPECT_NE(reader.next(), std::nullopt);
    // The literal's bytes count as consumed; the partial response after it stays.
    EXPECT_EQ(reader.start(), first.size() + rest.size());
    EXPECT_EQ(reader.bufferedByteCount(), partial.size());
    reader.append(std::string_view("ISTS\r\n"));
    EXPECT_NE(reader.next(), std::nullopt);
    EXPECT_EQ(reader.start(), 0u);
    EXPECT_EQ(reader.buffer(), "");
}

TEST(ReaderLiteral, AnnouncedBeyondTheReserveLimitArrivesWhole) {
    const std::size_t size = IMAPResponseReader::literalReserveLimit + 12345;
    std::string text(size, 'x');
    for (std::size_t i = 0; i < size; i += 4099) {
        text[i] = '\n';
    }
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
    ASSERT_NE(taken, std::nullopt);
    EXPECT_EQ(taken->size(), size);
    EXPECT_TRUE(*taken == text);
    EXPECT_EQ(reader.bufferedByteCount(), 0u);
}

TEST(ReaderLiteral, CutOffMidLiteralYieldsNothingAndKeepsWhatArrived) {
    const std::string cutOff = "* 2 FETCH (BODY[] {100}\r\nonly twenty bytes...";
    IMAPResponseReader reader;
    reader.append("* 1 FETCH (BODY[] {3}\r\nabc)\r\n" + cutOff);
    EXPECT_NE(reader.next(), std::nullopt);
    EXPECT_EQ(reader.next(), std::nullopt);
    EXPECT_EQ(reader.nextRawResponse(), std::nullopt);
    EXPECT_EQ(reader.bufferedByteCount(), cutOff.size());
}

TEST(ReaderLiteral, ReadAcrossOtherwiseParsesAsTheWholeBytes) {
    // Each stream's first response must parse as its raw bytes do when given whole: the held
    // literal is read as a quoted string's bytes, inside a bracketed atom, as free text, as the
    // quoted start of a bad tagged line, or next to literals within a line.
    const char* streams[] = {
        "* 1 FETCH (BODY[] {5}\r\nhello)\r\n",
        "* LIST () \"a {5}\r\nb\"c d\" x\r\n",
        "* 1 FETCH (BODY[{4}\r\n] x] {2}\r\nab)\r\n",
        "* OK [ALERT] see {6}\r\nthe rest\r\n",
        "* OK [CODE {3}\r\nx]] text\r\n",
        "A1 OK done {3}\r\nabc more\r\n",
        "A1 NO {3}\r\n\r\n\r\n\r\n",
        "A1 HELLO {4}\r\nthis line is quoted in the error up to eighty bytes, literal included\r\n",
        "+ go {2}\r\non\r\n",
        "* {3}\r\nabc\r\n",
        "* X {3}abc {2}\r\nde {1}\r\nf\r\n",
        "* X {9}abc {2}\r\nde\r\n",
        "* X {2}\r\nab{2}\r\ncd \"x\r\n",
        "* X ({1}\r\na ({2}\r\nbc) \"q\" {0}\r\n) {3}\r\n)))\r\n",
        "* X {3}\r\na\"b\" {+}\r\n",
        "* X {3}\r\nabc\r\n",
        "* X {05}\r\n12345 {1+}\r\n)\r\n",
        "* X \"{3}\r\nab\"\"\r\n",
        "* X [ {3}\r\n] ] Y\r\n",
        "* X {3}\r\n(((\r\n",
        "* X {3}\r\n) Y\r\n",
        "* X {2}\r\n\\ \"\r\n",
    };
    for (std::string stream : streams) {
        IMAPResponseReader whole;
        whole.append(stream);
        std::vector<Outcome> expected;
        while (auto raw = whole.nextRawResponse()) {
            expected.push_back(parsedWhole(*raw));
        }
        IMAPResponseReader reader;
        reader.append(stream);
        std::vector<Outcome> out;
        drain(reader, out);
        EXPECT_EQ(out, expected) << stream;
        EXPECT_EQ(reader.bufferedByteCount(), whole.bufferedByteCount()) << stream;
    }
}

TEST(ClientLiteral, BodiesOverManyReadsThenTheServerClosingMidBody) {
    // Two bodies of several receives each arrive whole; the third is cut off by the server.
    const std::string first = body(700000);
    const std::string second = body(300001);
    test::FakeIMAPServer server("* OK ready", [&](test::FakeIMAPConnection& connection,
                                                  const test::FakeIMAPCommand& command) {
        if (command.name != "UID FETCH") {
            connection.send(command.tag + " BAD unexpected");
            return;
        }
        connection.sendRaw("* 1 FETCH (UID 1 BODY[] {700000}\r\n" + first + ")\r\n");
        connection.sendRaw("* 2 FETCH (UID 2 BODY[] {300001}\r\n" + second + ")\r\n");
        connection.sendRaw("* 3 FETCH (UID 3 BODY[] {900000}\r\n" + first.substr(0, 500000));
        connection.close();
    });
    IMAPClient client(IMAPServer{"127.0.0.1", server.port(), true}, std::chrono::seconds(5));
    client.connect();
    std::vector<std::string> bodies;
    try {
        client.run("UID FETCH", {IMAPClient::Arg::raw("1:3"), IMAPClient::Arg::raw("(BODY[])")},
                   [&](IMAPResponse& response) {
                       auto& values = response.untagged()->values;
                       bodies.push_back(*values.at(2).items()[3].takeData());
                   });
        ADD_FAILURE() << "the cut-off body completed the command";
    } catch (const IMAPError& error) {
        EXPECT_EQ(error, IMAPError::closed());
    }
    ASSERT_EQ(bodies.size(), 2u);
    EXPECT_TRUE(bodies[0] == first);
    EXPECT_TRUE(bodies[1] == second);
}

} // namespace
} // namespace qs
