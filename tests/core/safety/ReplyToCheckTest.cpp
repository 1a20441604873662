#include "safety/ReplyToCheck.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

TEST(ReplyToCheckTest, Mismatch) {
    struct Case {
        const char* name;
        std::vector<MailAddress> from;
        std::vector<MailAddress> replyTo;
        std::optional<MailAddress> expected;
    };
    const MailAddress shop{"Shop", "news@shop.example.com"};
    const Case cases[] = {
        {"no from", {}, {{"", "a@evil.example"}}, std::nullopt},
        {"from without domain", {{"x", "@"}}, {{"", "a@evil.example"}}, std::nullopt},
        {"no reply-to", {shop}, {}, std::nullopt},
        {"subdomain of the sender", {shop}, {{"", "help@support.example.com"}}, std::nullopt},
        {"same domain in upper case", {shop}, {{"", "Help@EXAMPLE.COM"}}, std::nullopt},
        {"another site",
         {shop},
         {{"Bad", "bad@example.net"}},
         MailAddress{"Bad", "bad@example.net"}},
        {"first differing one, skipping empty domains",
         {shop},
         {{"", "a@example.com"}, {"", "@"}, {"", "b@other.org"}, {"", "c@third.org"}},
         MailAddress{"", "b@other.org"}},
        {"only the first from counts",
         {shop, {"", "x@other.org"}},
         {{"", "y@other.org"}},
         MailAddress{"", "y@other.org"}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ReplyToCheck::mismatch(c.from, c.replyTo), c.expected) << c.name;
    }
}

} // namespace
} // namespace qs
