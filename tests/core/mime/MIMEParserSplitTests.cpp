#include "mime/MIMEParser.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

TEST(MIMEParserSplit, HeaderBodyAtTheFirstBlankLine) {
    struct Row {
        std::string input, head, body;
    } rows[] = {
        {"", "", ""},
        {"\r\nbody", "", "body"},
        {"A: 1\nB: 2\n\nbody\n\nmore", "A: 1\nB: 2\n", "body\n\nmore"},
        {"A: 1\r\n\r\nbody\r\n", "A: 1\r\n", "body\r\n"},
        {"A: 1\n\r\nbody", "A: 1\n", "body"},
        {"A: 1\r\nB: 2\r\n", "A: 1\r\nB: 2\r\n", ""},
        {"A: 1\n\n", "A: 1\n", ""},
        {"A: 1\n\rX\n", "A: 1\n\rX\n", ""},
        {"A: 1\n\r", "A: 1\n\r", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.input);
        auto split = MIMEParser::splitHeaderBody(row.input);
        EXPECT_EQ(split.head, row.head);
        EXPECT_EQ(split.body, row.body);
    }
}

TEST(MIMEParserSplit, MultipartPiecesBetweenDelimiters) {
    struct Row {
        std::string body;
        std::vector<std::string> pieces;
        std::string boundary = "b";
    } rows[] = {
        {"--b\r\ntext\r\n--b--", {"text"}},
        {"pre\n--b\na\n--b\nsecond\nline\n--b--\nepilogue\n--b\nnot a part\n",
         {"a", "second\nline"}},
        {"--bc\nx\n--b\ny\n--bc\n--b--", {"y\n--bc"}},
        {"--b  \t\r\nx\r\n--b \r\n--b-- \r\n", {"x", ""}},
        {"--b\nx\n--b - -\nepilogue", {"x"}},
        {"--b\nx\n--b--garbage\ny", {"x"}},
        {"--b\nA\n--b-x\n--b x\n", {"A\n--b-x\n--b x\n"}},
        {"--b\na\n--b\nlast\n", {"a", "last\n"}},
        {"--b\nA\n--b", {"A"}},
        {"just text\n", {}},
        {"x--b\ny\nx--b--\n", {}},
        {"--b--\n--b\nx\n", {}},
        {"--b\nA\r\r\n\n--b--", {"A\r\r\n"}},
        {"--b\nA\r\r\n--b--", {"A\r"}},
        {"--=_(.*) +?x\r\nA\r\n--=_(.*) +?x--\r\n", {"A"}, "=_(.*) +?x"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.body);
        auto pieces = MIMEParser::splitMultipart(row.body, row.boundary);
        EXPECT_EQ(std::vector<std::string>(pieces.begin(), pieces.end()), row.pieces);
    }
}

} // namespace
} // namespace qs
