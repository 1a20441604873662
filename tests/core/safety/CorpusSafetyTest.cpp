#include "mime/MIMEParser.h"
#include "safety/HTMLInspector.h"
#include "safety/ReplyToCheck.h"
#include "safety/SenderCheck.h"
#include "safety/SenderTrust.h"
#include "support/Corpus.h"

#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace qs {
namespace {

// Real mail: every message is judged without a crash, the counts are plausible, and the
// messages known to carry trackers or misleading links are found to.
class CorpusSafetyTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        for (test::CorpusMessage& message : test::corpusMessages()) {
            ParsedMessage parsed = MIMEParser::parse(message.bytes);
            messages_.push_back({message.name, std::move(parsed)});
        }
    }
    static void TearDownTestSuite() { messages_.clear(); }

    struct Entry {
        std::string name;
        ParsedMessage parsed;
    };

    static const Entry* find(std::string_view name) {
        for (const Entry& entry : messages_) {
            if (entry.name == name) {
                return &entry;
            }
        }
        return nullptr;
    }

    static HTMLReport reportOf(std::string_view name) {
        const Entry* entry = find(name);
        EXPECT_NE(entry, nullptr) << name;
        if (!entry || !entry->parsed.htmlBody) {
            ADD_FAILURE() << name << " has no HTML body";
            return {};
        }
        return HTMLInspector::inspect(*entry->parsed.htmlBody);
    }

    static inline std::vector<Entry> messages_;
};

TEST_F(CorpusSafetyTest, EveryMessageIsJudged) {
    ASSERT_GT(messages_.size(), 800u);
    int64_t images = 0;
    int64_t trackers = 0;
    size_t withTrackers = 0;
    size_t withWarnings = 0;
    size_t flagged = 0;
    for (const Entry& entry : messages_) {
        if (entry.parsed.htmlBody) {
            const std::string& html = *entry.parsed.htmlBody;
            HTMLReport report = HTMLInspector::inspect(html);
            EXPECT_GE(report.remoteImageCount, 0);
            EXPECT_LE(report.trackerHosts.size(), size_t(report.trackerCount)) << entry.name;
            images += report.remoteImageCount;
            trackers += report.trackerCount;
            withTrackers += report.trackerCount > 0;
            withWarnings += !report.linkWarnings.empty();
            std::string shown =
                HTMLInspector::prepareForDisplay(html, entry.parsed.attachments, false);
            EXPECT_NE(shown.find("script-src 'none'"), std::string::npos) << entry.name;
            // What is shown has no trackers left in it (true of real mail; an image tag left
            // open at the very end could be closed by the wrapper).
            EXPECT_EQ(HTMLInspector::inspect(shown).trackerCount, 0) << entry.name;
        }
        std::optional<MailAddress> from;
        if (!entry.parsed.from.empty()) {
            from = entry.parsed.from.front();
        }
        flagged += !SenderCheck::check(from).empty();
        (void)senderTrustFrom(entry.parsed.headers);
        (void)ReplyToCheck::mismatch(entry.parsed.from, entry.parsed.replyTo);
    }
    // The corpus is mostly test mail: trackers sit in a few dozen real messages, not most.
    EXPECT_GE(withTrackers, 8u);
    EXPECT_LE(withTrackers, 60u);
    EXPECT_GT(images, trackers);
    EXPECT_GE(withWarnings, 5u);
    EXPECT_LE(withWarnings, 60u);
    EXPECT_LE(flagged, messages_.size() / 5);
}

// Pure functions with shared tables and per-thread matchers: judging the corpus on several
// threads at once gives what one thread gives.
TEST_F(CorpusSafetyTest, ParallelJudgementMatchesSequential) {
    auto judge = [](const Entry& entry) {
        std::string out;
        if (entry.parsed.htmlBody) {
            std::ostringstream report;
            report << HTMLInspector::inspect(*entry.parsed.htmlBody);
            out += report.str();
        }
        std::optional<MailAddress> from;
        if (!entry.parsed.from.empty()) {
            from = entry.parsed.from.front();
        }
        for (const SenderFlag& flag : SenderCheck::check(from, {"example.com"}, {})) {
            out += flag.summary;
        }
        out += toString(senderTrustFrom(entry.parsed.headers).trust);
        return out;
    };
    std::vector<std::string> expected;
    for (const Entry& entry : messages_) {
        expected.push_back(judge(entry));
    }
    constexpr size_t kThreads = 4;
    std::vector<std::vector<std::string>> results(kThreads);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (const Entry& entry : messages_) {
                results[t].push_back(judge(entry));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& result : results) {
        EXPECT_EQ(result, expected);
    }
}

TEST_F(CorpusSafetyTest, MarketingMailHasTrackers) {
    HTMLReport yipit = reportOf("go-gmime/fixtures/yipit.eml");
    EXPECT_GE(yipit.trackerCount, 1) << yipit;
    EXPECT_GE(yipit.remoteImageCount, 1) << yipit;
    HTMLReport paypal = reportOf("go-gmime/fixtures/benchmark.eml");
    EXPECT_GE(paypal.trackerCount, 1) << paypal;
}

TEST_F(CorpusSafetyTest, PhishingLinksAreFound) {
    for (const char* name : {"rspamd/messages/phishing1.eml", "rspamd/messages/phishing2.eml"}) {
        HTMLReport report = reportOf(name);
        EXPECT_FALSE(report.linkWarnings.empty()) << name << ": " << report;
    }
}

TEST_F(CorpusSafetyTest, TrustOfRealTraceHeaders) {
    auto readingOf = [](std::string_view name) {
        const Entry* entry = find(name);
        EXPECT_NE(entry, nullptr) << name;
        return entry ? senderTrustFrom(entry->parsed.headers) : SenderTrustReading{};
    };
    // A GitHub notification through Gmail: two DKIM signatures, SPF and DMARC all pass.
    EXPECT_EQ(readingOf("blaze/001.mail"),
              (SenderTrustReading{SenderTrust::verified,
                                  {{"dkim", "pass"}, {"spf", "pass"}, {"dmarc", "pass"}}}));
    EXPECT_EQ(readingOf("blaze/003.mail"),
              (SenderTrustReading{SenderTrust::verified, {{"spf", "pass"}, {"dkim", "pass"}}}));
    // List mail: the topmost field reports only ARC; the DMARC failure further down, added
    // before the list relayed it, doesn't count.
    EXPECT_EQ(readingOf("blaze/005.mail"), (SenderTrustReading{SenderTrust::unknown, {}}));
}

} // namespace
} // namespace qs
