#include "mime/TextTrim.h"

#include <gtest/gtest.h>

using namespace qs;

TEST(TextTrim, Trims) {
    struct Row {
        const char* name;
        const char* input;
        const char* blanks;
        const char* blanksAndNewlines;
    };
    for (const auto& row : {
             Row{"ASCII", " \ta b\t ", "a b", "a b"},
             Row{"line ends", "\r\n a \n", "\r\n a \n", "a"},
             Row{"no-break and ideographic spaces", "\xc2\xa0x\xe3\x80\x80", "x", "x"},
             Row{"line separator", "\xe2\x80\xa8x", "\xe2\x80\xa8x", "x"},
             Row{"other non-ASCII kept", "\xc3\xa9", "\xc3\xa9", "\xc3\xa9"},
             Row{"ends inside a sequence", "x\xa0", "x\xa0", "x\xa0"},
             Row{"only blanks", " \xc2\xa0 ", "", ""},
         }) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(TextTrim::whitespace(row.input), row.blanks);
        EXPECT_EQ(TextTrim::whitespaceAndNewlines(row.input), row.blanksAndNewlines);
    }
    EXPECT_EQ(TextTrim::asciiLower("ÉA-b"), "Éa-b");
    EXPECT_TRUE(TextTrim::equalsIgnoringCase("UTF-8", "utf-8"));
    EXPECT_FALSE(TextTrim::equalsIgnoringCase("utf-8", "utf-80"));
}
