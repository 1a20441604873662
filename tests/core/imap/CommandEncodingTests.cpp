#include "imap/IMAPDate.h"
#include "imap/IMAPError.h"
#include "imap/IMAPFetchItem.h"
#include "imap/IMAPQuote.h"
#include "imap/IMAPResponseParser.h"
#include "imap/ModifiedUTF7.h"
#include "imap/UIDSet.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <unicode/timezone.h>

namespace qs {
namespace {

TEST(UIDSetQuoteUTF7AndErrorText, Rows) {
    const std::pair<std::vector<uint32_t>, const char*> sets[] = {
        {{}, ""},
        {{5, 1, 2, 3, 3, 9, 10}, "1:3,5,9:10"},
        {{4294967294u, 4294967295u, 1}, "1,4294967294:4294967295"},
    };
    for (const auto& [uids, expected] : sets) {
        EXPECT_EQ(UIDSet::string(uids), expected) << ::testing::PrintToString(uids);
    }
    const std::pair<std::string, bool> literals[] = {
        {"tab\there", false}, {std::string("nul\0x", 5), false},
        {"line\nfeed", true}, {"carriage\rreturn", true},
        {"\x7f", false},      {"\x80", true}};
    for (const auto& [text, literal] : literals) {
        EXPECT_EQ(IMAPQuote::needsLiteral(text), literal) << text;
    }
    EXPECT_EQ(IMAPQuote::quoted(R"(a"b\c)"), R"("a\"b\\c")");
    EXPECT_EQ(IMAPQuote::quoted(""), R"("")");
    const std::pair<const char*, const char*> names[] = {
        {"A&-B", "A&B"},
        {"&Jjo", "&Jjo"},
        {"a&!!!-b", "a&!!!-b"},
        {"~peter/mail/&U,BTFw-/&ZeVnLIqe-", "~peter/mail/台北/日本語"},
        {"&2D3eAA-", "\xF0\x9F\x98\x80"}, // a surrogate pair: U+1F600
        {"&2D0-", "&2D0-"},               // an unpaired high surrogate
        {"&3AA-", "&3AA-"},               // a lone low surrogate, U+DC00
        {"&2D0AYQ-", "&2D0AYQ-"},         // a high surrogate before no low one
        {"&AGE-", "a"},
    };
    for (const auto& [encoded, decoded] : names) {
        EXPECT_EQ(ModifiedUTF7::decode(encoded), decoded) << encoded;
    }
    EXPECT_STREQ(IMAPError::insecureNotAllowed().what(),
                 "Unencrypted connections are only allowed to 127.0.0.1 in developer mode.");
}

// The device's zone applies to texts without one; fix it for these rows.
class IMAPDateTest : public ::testing::Test {
protected:
    void SetUp() override {
        saved_.reset(icu::TimeZone::createDefault());
        icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone("Europe/Berlin"));
    }
    void TearDown() override { icu::TimeZone::setDefault(*saved_); }

private:
    std::unique_ptr<icu::TimeZone> saved_;
};

TEST_F(IMAPDateTest, ParsesStrictlyAndFormatsInTheDevicesZone) {
    struct Row {
        const char* text;
        std::optional<int64_t> seconds;
    } rows[] = {
        {"17-Jul-1996 02:44:25 -0700", 837596665},
        {" \t17-jul-1996 02:44:25 -0700\t ", 837596665},
        {"05-Mar-2024 10:00:00 +0100", 1709629200},
        {"17-Jul-1996 02:44:25", std::nullopt},
        {"31-Feb-2024 10:00:00 +0000", std::nullopt},
        {"17-Jul-1996 02:44:25 -0700 junk", std::nullopt},
        {"", std::nullopt},
    };
    for (const Row& row : rows) {
        std::optional<Date> date = IMAPDate::parse(row.text);
        EXPECT_EQ(date ? std::optional<int64_t>(unixSeconds(*date)) : std::nullopt, row.seconds)
            << "\"" << row.text << "\"";
    }
    EXPECT_EQ(IMAPDate::searchString(dateFromUnix(1709632800)), "5-Mar-2024");
    // 23:30 UTC on 4 March is already 5 March in Berlin.
    EXPECT_EQ(IMAPDate::searchString(dateFromUnix(1709595000)), "5-Mar-2024");
    EXPECT_EQ(IMAPDate::searchString(dateFromUnix(1735689599)), "1-Jan-2025");
}

TEST(IMAPFetchItem, ReadsPairsAndSkipsWhatIsNoFetch) {
    struct Row {
        const char* name;
        const char* line;
        std::optional<IMAPFetchItem> expected;
    } rows[] = {
        {"keys in any case, the last of a repeat wins, a lone key ignored",
         "1 fetch (uid 3 Uid 4 body[header] \"h\" UNKNOWN x RFC822.SIZE)",
         IMAPFetchItem{1, 4, std::nullopt, std::nullopt, {}, "h"}},
        {"unreadable numbers and dates give nothing",
         "2 FETCH (UID -1 RFC822.SIZE x INTERNALDATE \"x\")",
         IMAPFetchItem{2, std::nullopt, std::nullopt, std::nullopt, {}, std::nullopt}},
        {"NIL body", "3 FETCH (UID 1 BODY[] NIL)", IMAPFetchItem{3, 1, {}, {}, {}, std::nullopt}},
        {"expunge", "3 EXPUNGE", std::nullopt},
        {"no list", "3 FETCH UID", std::nullopt},
        {"sequence quoted", "\"3\" FETCH (UID 1)", std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<IMAPValue> values = IMAPResponseParser::tokens(row.line);
        EXPECT_EQ(IMAPFetchItem::from(values), row.expected);
    }
}

} // namespace
} // namespace qs
