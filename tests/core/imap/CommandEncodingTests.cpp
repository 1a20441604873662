// The small encoders and decoders of the commands, row by row, and the fixed error texts.
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

TEST(UIDSet, CompressesRunsAfterSortingAndDroppingRepeats) {
    struct Row {
        std::vector<uint32_t> uids;
        const char* expected;
    } rows[] = {
        {{}, ""},
        {{42}, "42"},
        {{5, 1, 2, 3, 3, 9, 10}, "1:3,5,9:10"},
        {{1, 3, 5}, "1,3,5"},
        {{4294967294u, 4294967295u, 1}, "1,4294967294:4294967295"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(UIDSet::string(row.uids), row.expected) << ::testing::PrintToString(row.uids);
    }
}

TEST(IMAPQuote, NeedsALiteralOnlyForLineEndsAndBytesAbove127) {
    struct Row {
        std::string text;
        bool literal;
    } rows[] = {{"plain", false},     {"", false},
                {"tab\there", false}, {std::string("nul\0x", 5), false},
                {"line\nfeed", true}, {"carriage\rreturn", true},
                {"Entwürfe", true},   {"\x7f", false},
                {"\x80", true}};
    for (const Row& row : rows) {
        EXPECT_EQ(IMAPQuote::needsLiteral(row.text), row.literal) << row.text;
    }
}

TEST(IMAPQuote, EscapesBackslashesAndQuotes) {
    struct Row {
        const char* text;
        const char* quoted;
    } rows[] = {{"", R"("")"},
                {"INBOX", R"("INBOX")"},
                {R"(a"b)", R"("a\"b")"},
                {R"(a\b)", R"("a\\b")"},
                {R"(\")", R"("\\\"")"}};
    for (const Row& row : rows) {
        EXPECT_EQ(IMAPQuote::quoted(row.text), row.quoted);
    }
}

TEST(ModifiedUTF7, DecodesShiftSequencesAndKeepsWhatDoesNotDecode) {
    struct Row {
        const char* encoded;
        const char* decoded;
    } rows[] = {
        {"INBOX", "INBOX"},
        {"Entw&APw-rfe", "Entwürfe"},
        {"A&-B", "A&B"},
        {"&Jjo", "&Jjo"},
        {"&!!!-", "&!!!-"},
        {"&ZeVnLIqe-", "日本語"},
        {"~peter/mail/&U,BTFw-/&ZeVnLIqe-", "~peter/mail/台北/日本語"},
        {"&2D3eAA-", "\xF0\x9F\x98\x80"}, // a surrogate pair: U+1F600
        {"&2D0-", "&2D0-"},               // an unpaired high surrogate
        {"&3AA-", "&3AA-"},               // a lone low surrogate, U+DC00
        {"&2D0AYQ-", "&2D0AYQ-"},         // a high surrogate before no low one
        {"&AGE-", "a"},
        {"&-&-", "&&"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ModifiedUTF7::decode(row.encoded), row.decoded) << row.encoded;
    }
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

TEST_F(IMAPDateTest, ParsesInternalDatesStrictlyAndWhole) {
    struct Row {
        const char* text;
        std::optional<int64_t> seconds;
    } rows[] = {
        {"17-Jul-1996 02:44:25 -0700", 837596665},
        {" \t17-jul-1996 02:44:25 -0700\t ", 837596665},
        {" 5-Mar-2024 10:00:00 +0000", 1709632800},
        {"05-Mar-2024 10:00:00 +0100", 1709629200},
        {"17-Jul-1996 02:44:25", std::nullopt},
        {"31-Feb-2024 10:00:00 +0000", std::nullopt},
        {"17-Jul-1996 02:44:25 -0700 junk", std::nullopt},
        {"yesterday", std::nullopt},
        {"", std::nullopt},
    };
    for (const Row& row : rows) {
        std::optional<Date> date = IMAPDate::parse(row.text);
        EXPECT_EQ(date ? std::optional<int64_t>(unixSeconds(*date)) : std::nullopt, row.seconds)
            << "\"" << row.text << "\"";
    }
}

TEST_F(IMAPDateTest, FormatsSearchDatesInTheDevicesZone) {
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
        {"all six fields",
         "12 FETCH (UID 7 FLAGS (\\Seen) RFC822.SIZE 99 INTERNALDATE \"17-Jul-1996 02:44:25 "
         "-0700\" BODY[] {3}\r\nabc)",
         IMAPFetchItem{12, 7, 99, dateFromUnix(837596665), {"\\Seen"}, "abc"}},
        {"keys in any case, the last of a repeat wins, a lone key ignored",
         "1 fetch (uid 3 Uid 4 body[header] \"h\" UNKNOWN x RFC822.SIZE)",
         IMAPFetchItem{1, 4, std::nullopt, std::nullopt, {}, "h"}},
        {"unreadable numbers and dates give nothing",
         "2 FETCH (UID -1 RFC822.SIZE x INTERNALDATE \"x\")",
         IMAPFetchItem{2, std::nullopt, std::nullopt, std::nullopt, {}, std::nullopt}},
        {"NIL body", "3 FETCH (UID 1 BODY[] NIL)", IMAPFetchItem{3, 1, {}, {}, {}, std::nullopt}},
        {"expunge", "3 EXPUNGE", std::nullopt},
        {"no list", "3 FETCH UID", std::nullopt},
        {"sequence no number", "x FETCH (UID 1)", std::nullopt},
        {"sequence quoted", "\"3\" FETCH (UID 1)", std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<IMAPValue> values = IMAPResponseParser::tokens(row.line);
        EXPECT_EQ(IMAPFetchItem::from(values), row.expected);
    }
}

TEST(IMAPError, DescriptionsAreTheFixedTexts) {
    struct Row {
        IMAPError error;
        const char* text;
    } rows[] = {
        {IMAPError::connectionFailed("Connection refused"), "Couldn’t connect: Connection refused"},
        {IMAPError::commandFailed("LOGIN", IMAPStatus::no, "bad password"),
         "Sign-in was refused (NO): bad password"},
        {IMAPError::commandFailed("login", IMAPStatus::bad, "x"), "login failed (BAD): x"},
        {IMAPError::commandFailed("UID FETCH", IMAPStatus::bad, "x"), "UID FETCH failed (BAD): x"},
        {IMAPError::protocolError("no greeting"), "Unexpected server reply: no greeting"},
        {IMAPError::timeout(), "The server stopped responding."},
        {IMAPError::closed(), "The server closed the connection."},
        {IMAPError::insecureNotAllowed(),
         "Unencrypted connections are only allowed to 127.0.0.1 in developer mode."},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.error.description(), row.text);
        EXPECT_STREQ(row.error.what(), row.text);
    }
}

} // namespace
} // namespace qs
