// The same stream cut into pieces anywhere must give the same responses and errors as whole.

#include "imap/IMAPResponseReader.h"

#include "ParserValueBuilders.h"
#include "ReaderOutcomes.h"

#include <gtest/gtest.h>
#include <string>
#include <variant>
#include <vector>

namespace qs {
namespace {

using namespace qs::test;

// Awkward on purpose: literals with line ends and markers inside, a literal right at a line
// end, {n+}, a lone LF, an empty line (an error), a malformed response, a literal of length 0.
const std::string stream = "* OK [CAPABILITY IMAP4rev1] ready\r\n"
                           "* 1 FETCH (UID 7 BODY[] {13}\r\nab\r\n{3}\r\n\r\ncd FLAGS (\\Seen))\r\n"
                           "* 2 FETCH (BODY[HEADER] {3+}\r\n}\r\n BODY[TEXT] {0}\r\n)\n"
                           "\r\n"
                           "* (broken\r\n"
                           "+ go on\r\n"
                           "* LIST () \"/\" {4}\r\nI\"\\x\r\n"
                           "M0001 oK [READ-ONLY] done\r\n";

std::vector<Outcome> outcomes(const std::vector<std::size_t>& cuts) {
    return feedInPieces(stream, cuts);
}

TEST(ReaderSplit, WholeStreamGivesTheExpectedSequence) {
    std::vector<Outcome> expected = {
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
    EXPECT_EQ(outcomes({}), expected);
}

TEST(ReaderSplit, EveryCutInTwoAndThreeAndEveryChunkSize) {
    const auto whole = outcomes({});
    for (std::size_t i = 0; i <= stream.size(); ++i) {
        ASSERT_EQ(outcomes({i}), whole) << "cut at " << i;
        for (std::size_t j = i; j <= stream.size(); j += 7) {
            ASSERT_EQ(outcomes({i, j}), whole) << "cuts at " << i << ", " << j;
        }
    }
    for (std::size_t size = 1; size <= stream.size(); ++size) {
        std::vector<std::size_t> cuts;
        for (std::size_t at = size; at < stream.size(); at += size) {
            cuts.push_back(at);
        }
        ASSERT_EQ(outcomes(cuts), whole) << "chunks of " << size;
    }
}

} // namespace
} // namespace qs
