#include "mime/PercentDecode.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qs;

TEST(PercentDecode, Bytes) {
    struct Row {
        const char* name;
        std::string input;
        std::string output;
    };
    const std::vector<Row> rows{
        {"escapes of either case", "%e2%82%AC", "\xe2\x82\xac"},
        {"space", "a%20b", "a b"},
        {"truncated escape", "%4", "%4"},
        {"not hex", "%zz", "%zz"},
        {"percent at end", "100%", "100%"},
        {"percent before escape", "%%41", "%A"},
        {"NUL byte", "%00", std::string(1, '\0')},
        {"plain", "abc", "abc"},
        {"empty", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(PercentDecode::bytes(row.input), row.output);
    }
}
