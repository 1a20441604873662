#include "mime/ByteSlice.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

TEST(ByteSlice, SlicesShareOneBufferAndClampToIt) {
    auto buffer = std::make_shared<const std::string>("0123456789");
    ByteSlice whole(buffer);
    ByteSlice middle = whole.slice(2, 5);
    EXPECT_EQ(middle, "23456");
    EXPECT_EQ(middle.data(), buffer->data() + 2);
    EXPECT_EQ(middle.slice(3), "56");
    EXPECT_EQ(middle.slice(3, 100), "56");
    EXPECT_EQ(middle.slice(100), "");
    EXPECT_EQ(ByteSlice(buffer, 8, 10), "89");
    EXPECT_EQ(ByteSlice(buffer, 20, 1), "");
    EXPECT_EQ(whole.slice(whole.view().substr(4, 2)).data(), buffer->data() + 4);
}

TEST(ByteSlice, EqualityComparesBytesNotBuffers) {
    EXPECT_EQ(ByteSlice(std::string("ab")), ByteSlice(std::string("xab")).slice(1));
    EXPECT_NE(ByteSlice(std::string("ab")), ByteSlice(std::string("ac")));
    EXPECT_EQ(ByteSlice(), ByteSlice(std::string()));
    EXPECT_TRUE(ByteSlice().empty());
    EXPECT_EQ(ByteSlice().view(), "");
}

} // namespace
} // namespace qs
