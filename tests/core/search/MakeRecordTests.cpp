#include "search/SearchIndex.h"
#include "support/Corpus.h"
#include "support/Unicode.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

SearchIndex::Entry make(std::string_view message, std::string_view path = "acct/INBOX/2024/m.eml",
                        double mtime = 1700000000.5) {
    return SearchIndex::makeRecord(message, path, mtime);
}

std::string message(std::string_view headers, std::string_view body) {
    return std::string(headers) + "\r\n" + std::string(body);
}

TEST(MakeRecord, FillsEveryFieldOfAPlainMessage) {
    auto data = message("From: Ann Example <ann@example.com>\r\n"
                        "To: Bob <bob@example.org>, carol@example.net\r\n"
                        "Cc: Dan <dan@example.com>\r\n"
                        "Reply-To: ann@example.com\r\n"
                        "Subject: Quarterly invoice\r\n"
                        "Date: Fri, 01 Mar 2024 12:00:00 +0000\r\n",
                        "Hello Bob,\r\n\r\nPlease find the invoice.\r\n");
    auto [r, text] = make(data);
    EXPECT_EQ(r.id, 0);
    EXPECT_EQ(r.path, "acct/INBOX/2024/m.eml");
    EXPECT_EQ(r.account, "acct");
    EXPECT_EQ(r.folder, "INBOX");
    EXPECT_EQ(r.subject, "Quarterly invoice");
    EXPECT_EQ(r.fromName, "Ann Example");
    EXPECT_EQ(r.fromEmail, "ann@example.com");
    EXPECT_EQ(r.to, "Bob <bob@example.org>, carol@example.net, Dan <dan@example.com>");
    EXPECT_EQ(r.date, dateFromUnix(1709294400));
    EXPECT_EQ(r.size, int64_t(data.size()));
    EXPECT_EQ(r.snippet, "Hello Bob, Please find the invoice. ");
    EXPECT_EQ(r.attachments, 0);
    EXPECT_EQ(r.trackers, 0);
    EXPECT_EQ(r.remoteImages, 0);
    EXPECT_EQ(r.linkWarnings, 0);
    EXPECT_EQ(r.trust, SenderTrust::unknown);
    EXPECT_FALSE(r.replyToMismatch);
    EXPECT_EQ(r.mtime, 1700000000.5);
    EXPECT_FALSE(r.senderFlag.has_value());
    EXPECT_FALSE(r.isSuspicious());
    EXPECT_EQ(text, "Quarterly invoice\n"
                    "Ann Example ann@example.com Bob bob@example.org  carol@example.net "
                    "Dan dan@example.com\n"
                    "Hello Bob,\r\n\r\nPlease find the invoice.\r\n\n");
}

TEST(MakeRecord, NoFromShowsUnknownSender) {
    auto [r, text] = make(message("Subject: hi\r\n", "body"));
    EXPECT_EQ(r.fromName, "");
    EXPECT_EQ(r.fromEmail, "");
    EXPECT_EQ(r.fromDisplay(), "(unknown sender)");
    MessageRecord named;
    named.fromEmail = "x@y.z";
    EXPECT_EQ(named.fromDisplay(), "x@y.z");
    named.fromName = "X";
    EXPECT_EQ(named.fromDisplay(), "X");
}

TEST(MakeRecord, MissingOrBrokenDateTakesTheNewestReceivedThenTheModificationTime) {
    const std::vector<std::pair<std::string, int64_t>> rows{
        {"Subject: no date\r\n", 1650000000},
        {"Subject: bad\r\nDate: not a date at all\r\n", 1650000000},
        {"Received: from a by b; Tue, 5 Mar 2024 10:00:00 +0000\r\nDate: never\r\n", 1709632800},
    };
    for (const auto& [headers, seconds] : rows) {
        auto [r, text] = make(message(headers, "x"), "a.eml", 1650000000.0);
        EXPECT_EQ(r.date, dateFromUnix(seconds)) << headers;
    }
}

TEST(MakeRecord, PathComponentsGiveAccountAndFolder) {
    struct Case {
        const char* path;
        const char* account;
        const char* folder;
    };
    for (auto c : {Case{"file.eml", "file.eml", ""}, Case{"a/b/2024/c.eml", "a", "b"},
                   Case{"/a//b/c.eml", "a", "b"}, Case{"", "", ""}}) {
        auto [r, text] = make(message("Subject: s\r\n", "x"), c.path);
        EXPECT_EQ(r.account, c.account) << c.path;
        EXPECT_EQ(r.folder, c.folder) << c.path;
        EXPECT_EQ(r.path, c.path);
    }
}

TEST(MakeRecord, CcAloneFillsTo) {
    auto [r, text] = make(message("To: \r\nCc: Zed <zed@example.com>\r\n", "x"));
    EXPECT_EQ(r.to, "Zed <zed@example.com>");
}

TEST(MakeRecord, SnippetIs180CharactersWithWhiteSpaceSqueezedAndNotTrimmed) {
    std::string body = "\r\n\r\n   ";
    for (int i = 0; i < 100; ++i) {
        body += "word\t\t  ";
    }
    auto [r, text] = make(message("Subject: s\r\n", body));
    EXPECT_EQ(Unicode::graphemeCount(r.snippet), 180u);
    EXPECT_EQ(r.snippet.substr(0, 10), " word word");
    EXPECT_EQ(r.snippet.find("  "), std::string::npos);
}

TEST(MakeRecord, SnippetKeepsACharacterWhoseMarkFallsPastTheFirstWindow) {
    // The combining accent straddles byte 2048 of the body, where the snippet's first look
    // ends; the snippet must still end with the whole accented letter.
    std::string body = std::string(1868, ' ') + std::string(178, 'a') + "e\u0301" + "bbbb";
    auto [r, text] = make(message("Content-Type: text/plain; charset=utf-8\r\n", body));
    EXPECT_EQ(r.snippet, " " + std::string(178, 'a') + "e\u0301");
}

TEST(MakeRecord, EmojiWithSkinToneIsOneCharacter) {
    std::string body;
    for (int i = 0; i < 200; ++i) {
        body += "👍🏽";
    }
    auto data = message("Content-Type: text/plain; charset=utf-8\r\n", body);
    auto [r, text] = make(data);
    EXPECT_EQ(Unicode::graphemeCount(r.snippet), 180u);
    EXPECT_EQ(r.snippet.size(), 180u * std::string("👍🏽").size());
}

TEST(MakeRecord, OnlyTheFirst40000CharactersOfTheBodyAreSearchable) {
    std::string body = "early ";
    body += std::string(39'990, 'z');
    body += " lateword";
    auto [r, text] = make(message("Subject: s\r\n", body));
    SearchIndex index;
    index.add(r, text);
    EXPECT_EQ(index.search("early").size(), 1u);
    EXPECT_TRUE(index.search("lateword").empty());

    // Two-scalar characters count once: 20,000 of them stay within the limit.
    std::string emoji;
    for (int i = 0; i < 20'000; ++i) {
        emoji += "👍🏽";
    }
    auto [r2, text2] =
        make(message("Content-Type: text/plain; charset=utf-8\r\n", emoji + " reachable"));
    EXPECT_NE(text2.find("reachable"), std::string::npos);
}

TEST(MakeRecord, SearchTextHoldsAttachmentNamesButNotReplyTo) {
    auto data = message("From: a@example.com\r\n"
                        "Reply-To: hidden@elsewhere.example\r\n"
                        "Subject: files\r\n"
                        "MIME-Version: 1.0\r\n"
                        "Content-Type: multipart/mixed; boundary=XX\r\n",
                        "--XX\r\nContent-Type: text/plain\r\n\r\nsee attached\r\n"
                        "--XX\r\nContent-Type: application/pdf\r\n"
                        "Content-Disposition: attachment; filename=\"Quarterly-Report.pdf\"\r\n"
                        "Content-Transfer-Encoding: base64\r\n\r\nJVBERi0=\r\n--XX--\r\n");
    auto [r, text] = make(data);
    EXPECT_EQ(r.attachments, 1);
    EXPECT_TRUE(r.replyToMismatch);
    EXPECT_TRUE(r.isSuspicious());
    SearchIndex index;
    index.add(r, text);
    EXPECT_EQ(index.search("quarterly report").size(), 1u);
    EXPECT_TRUE(index.search("hidden").empty());
    EXPECT_TRUE(index.search("elsewhere").empty());
}

TEST(MakeRecord, HTMLFindingsAreCounted) {
    auto data = message("From: shop@example.com\r\nContent-Type: text/html\r\n",
                        "<p>Hi <img src=\"https://cdn.example.com/banner.png\" width=600>"
                        "<img src=\"https://track.example.net/open.gif\" width=1 height=1>"
                        "<a href=\"https://evil.example.org/login\">www.mybank.com</a></p>");
    auto [r, text] = make(data);
    EXPECT_EQ(r.remoteImages, 1);
    EXPECT_EQ(r.trackers, 1);
    EXPECT_EQ(r.linkWarnings, 1);
    EXPECT_TRUE(r.isSuspicious());
    EXPECT_EQ(r.snippet.substr(0, 2), "Hi");
}

TEST(MakeRecord, FailedDMARCIsSuspiciousButTrackersAloneAreNot) {
    auto failed = message("From: ceo@example.com\r\n"
                          "Authentication-Results: mx.example.net; spf=pass; dkim=pass; "
                          "dmarc=fail header.from=example.com\r\n",
                          "pay this");
    auto [r, text] = make(failed);
    EXPECT_EQ(r.trust, SenderTrust::failed);
    EXPECT_FALSE(r.senderFlag.has_value());
    EXPECT_EQ(r.linkWarnings, 0);
    EXPECT_TRUE(r.isSuspicious());

    MessageRecord tracked;
    tracked.trackers = 100;
    tracked.remoteImages = 5;
    tracked.trust = SenderTrust::unknown;
    EXPECT_FALSE(tracked.isSuspicious());
    tracked.trust = SenderTrust::partial;
    EXPECT_FALSE(tracked.isSuspicious());
    tracked.senderFlag = "x";
    EXPECT_TRUE(tracked.isSuspicious());
}

TEST(MakeRecord, SenderFlagIsTheFirstFlagsSummary) {
    auto [r, text] =
        make(message("From: \"PayPal Support\" <help@paypa1-secure.example>\r\n", "x"));
    ASSERT_TRUE(r.senderFlag.has_value());
    EXPECT_FALSE(r.senderFlag->empty());
    EXPECT_TRUE(r.isSuspicious());
}

TEST(MakeRecord, RubbishGivesAnEmptyRecord) {
    std::string rubbish = "\x00\x01\xFF\xFE garbage without headers";
    rubbish.push_back('\0');
    auto [r, text] = make(rubbish, "x/y/z.eml", 1234.0);
    EXPECT_EQ(r.size, int64_t(rubbish.size()));
    EXPECT_EQ(r.date, dateFromUnix(1234));
    EXPECT_EQ(r.fromEmail, "");
    EXPECT_EQ(r.to, "");
}

// Every message of the real-world corpus makes a sane record, and an index of all of them
// survives a round trip through JSON unchanged.
TEST(MakeRecord, CorpusMessagesMakeSaneRecordsThatSurviveARoundTrip) {
    auto messages = test::corpusMessages();
    ASSERT_GT(messages.size(), 800u);
    SearchIndex index;
    size_t withSubject = 0;
    size_t withSender = 0;
    for (size_t i = 0; i < messages.size(); ++i) {
        const auto& m = messages[i];
        auto path = "corpus/" + m.name;
        auto [r, text] = SearchIndex::makeRecord(m.bytes, path, 1'700'000'000.0 + double(i));
        EXPECT_EQ(r.size, int64_t(m.bytes.size())) << m.name;
        EXPECT_LE(Unicode::graphemeCount(r.snippet), 180u) << m.name;
        EXPECT_TRUE(Unicode::isValidUTF8(r.snippet)) << m.name;
        EXPECT_EQ(r.account, "corpus");
        withSubject += r.subject.empty() ? 0 : 1;
        withSender += r.fromEmail.empty() ? 0 : 1;
        // Whole seconds, so the record reads back equal.
        r.date = std::chrono::floor<std::chrono::seconds>(r.date);
        index.add(r, text);
        // The subject's words find the message.
        auto words = SearchIndex::tokenize(r.subject);
        if (!words.empty()) {
            bool found = false;
            for (const auto* hit : index.search(words.front())) {
                found = found || hit->path == path;
            }
            EXPECT_TRUE(found) << m.name;
        }
    }
    EXPECT_GT(withSubject, messages.size() / 2);
    EXPECT_GT(withSender, messages.size() / 2);
    EXPECT_EQ(index.count(), messages.size());

    auto loaded = SearchIndex::decode(index.encode());
    ASSERT_EQ(loaded.slotCount(), index.slotCount());
    size_t differing = 0;
    for (size_t i = 0; i < index.slotCount(); ++i) {
        auto a = *index.slot(int64_t(i));
        auto b = *loaded.slot(int64_t(i));
        if (!(a == b)) {
            ++differing;
            ADD_FAILURE() << a << "\n" << b;
        }
    }
    EXPECT_EQ(differing, 0u);
    EXPECT_EQ(loaded.allPostings(), index.allPostings());
}

} // namespace
} // namespace qs
