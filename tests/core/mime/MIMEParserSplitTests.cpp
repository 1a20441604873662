#include "mime/MIMEParser.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

struct HeadBodyCase {
    const char* name;
    std::string input;
    std::string head;
    std::string body;
};

class SplitHeaderBody : public testing::TestWithParam<HeadBodyCase> {};

TEST_P(SplitHeaderBody, SplitsAtTheFirstBlankLine) {
    const auto& c = GetParam();
    auto split = MIMEParser::splitHeaderBody(c.input);
    EXPECT_EQ(split.head, c.head);
    EXPECT_EQ(split.body, c.body);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SplitHeaderBody,
    testing::Values(HeadBodyCase{"Empty", "", "", ""},
                    HeadBodyCase{"LeadingLF", "\nbody", "", "body"},
                    HeadBodyCase{"LeadingCRLF", "\r\nbody", "", "body"},
                    HeadBodyCase{"LF", "A: 1\nB: 2\n\nbody\n\nmore", "A: 1\nB: 2\n",
                                 "body\n\nmore"},
                    HeadBodyCase{"CRLF", "A: 1\r\n\r\nbody\r\n", "A: 1\r\n", "body\r\n"},
                    HeadBodyCase{"LFThenCRLF", "A: 1\n\r\nbody", "A: 1\n", "body"},
                    HeadBodyCase{"NoBlankLineIsAllHead", "Subject: hi", "Subject: hi", ""},
                    HeadBodyCase{"NoBlankLineCRLF", "A: 1\r\nB: 2\r\n", "A: 1\r\nB: 2\r\n", ""},
                    HeadBodyCase{"BlankLineAtEnd", "A: 1\n\n", "A: 1\n", ""},
                    HeadBodyCase{"BareCRIsNoBlankLine", "A: 1\n\rX\n", "A: 1\n\rX\n", ""},
                    HeadBodyCase{"CRLFCRAtEndIsNoBlankLine", "A: 1\n\r", "A: 1\n\r", ""}),
    [](const auto& info) { return std::string(info.param.name); });

struct MultipartCase {
    const char* name;
    std::string body;
    std::vector<std::string> pieces;
};

class SplitMultipart : public testing::TestWithParam<MultipartCase> {};

TEST_P(SplitMultipart, GivesThePiecesBetweenDelimiters) {
    const auto& c = GetParam();
    auto pieces = MIMEParser::splitMultipart(c.body, "b");
    EXPECT_EQ(std::vector<std::string>(pieces.begin(), pieces.end()), c.pieces);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SplitMultipart,
    testing::Values(
        MultipartCase{"OnePieceCRLF", "--b\r\ntext\r\n--b--", {"text"}},
        MultipartCase{"PreambleAndEpilogueDropped",
                      "pre\n--b\na\n--b\nsecond\nline\n--b--\nepilogue\n--b\nnot a part\n",
                      {"a", "second\nline"}},
        MultipartCase{"LongerBoundaryIsNotADelimiter", "--bc\nx\n--b\ny\n--bc\n--b--", {"y\n--bc"}},
        MultipartCase{"TrailingBlanksAllowed", "--b  \t\r\nx\r\n--b \r\n--b-- \r\n", {"x", ""}},
        MultipartCase{"BlanksBeforeClosingDashes", "--b\nx\n--b - -\nepilogue", {"x"}},
        MultipartCase{"ClosingWithTrailingText", "--b\nx\n--b--garbage\ny", {"x"}},
        MultipartCase{
            "OtherTextAfterMarkerIsNoDelimiter", "--b\nA\n--b-x\n--b x\n", {"A\n--b-x\n--b x\n"}},
        MultipartCase{"UnclosedKeepsLastPieceWithLineEnd", "--b\na\n--b\nlast\n", {"a", "last\n"}},
        MultipartCase{"UnclosedEndingInDelimiter", "--b\nA\n--b", {"A"}},
        MultipartCase{"NoDelimiter", "just text\n", {}},
        MultipartCase{"MarkerMidLineIsNoDelimiter", "x--b\ny\nx--b--\n", {}},
        MultipartCase{"ClosingFirstGivesNothing", "--b--\n--b\nx\n", {}},
        MultipartCase{"EmptyPieces", "--b\n--b\n--b--", {"", ""}},
        MultipartCase{"OneLineEndRemovedEachOnce", "--b\nA\r\r\n\n--b--", {"A\r\r\n"}},
        MultipartCase{"BareCRBeforeDelimiterKept", "--b\nA\r\r\n--b--", {"A\r"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SplitMultipart, BoundaryWithRegexAndSpaceCharacters) {
    std::string boundary = "=_(.*) +?x";
    std::string body = "--" + boundary + "\r\nA\r\n--" + boundary + "--\r\n";
    auto pieces = MIMEParser::splitMultipart(body, boundary);
    ASSERT_EQ(pieces.size(), 1u);
    EXPECT_EQ(pieces[0], "A");
}

} // namespace
} // namespace qs
