#include "mime/MIMEParser.h"
#include "safety/HTMLInspector.h"
#include "safety/ReplyToCheck.h"
#include "safety/SenderCheck.h"
#include "safety/SenderTrust.h"
#include "support/Corpus.h"

#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <thread>

namespace qs {
namespace {

TEST(CorpusSafetyTest, EveryMessageIsJudged) {
    std::map<std::string, std::string> raw;
    for (test::CorpusMessage& message : test::corpusMessages()) {
        raw.emplace(message.name, std::move(message.bytes));
    }
    ASSERT_GT(raw.size(), 800u);
    auto judge = [](const std::string& bytes) {
        ParsedMessage parsed = MIMEParser::parse(bytes);
        std::ostringstream out;
        out << parsed.subject << parsed.plainText()
            << (parsed.date ? unixSeconds(*parsed.date) : 0);
        if (parsed.htmlBody) {
            out << HTMLInspector::inspect(*parsed.htmlBody);
        }
        auto from = parsed.from.empty() ? std::nullopt : std::optional(parsed.from.front());
        for (const SenderFlag& flag : SenderCheck::check(from, {"example.com"}, {})) {
            out << flag.summary;
        }
        out << senderTrustFrom(parsed.headers)
            << ReplyToCheck::mismatch(parsed.from, parsed.replyTo).has_value();
        return out.str();
    };
    std::vector<std::string> expected;
    int64_t images = 0, trackers = 0;
    size_t withTrackers = 0, withWarnings = 0, flagged = 0;
    for (const auto& [name, bytes] : raw) {
        expected.push_back(judge(bytes));
        ParsedMessage parsed = MIMEParser::parse(bytes);
        if (parsed.htmlBody) {
            HTMLReport report = HTMLInspector::inspect(*parsed.htmlBody);
            images += report.remoteImageCount;
            trackers += report.trackerCount;
            withTrackers += report.trackerCount > 0;
            withWarnings += !report.linkWarnings.empty();
            std::string shown =
                HTMLInspector::prepareForDisplay(*parsed.htmlBody, parsed.attachments, false);
            // What is shown has no trackers left in it (true of real mail; an image tag left
            // open at the very end could be closed by the wrapper).
            EXPECT_EQ(HTMLInspector::inspect(shown).trackerCount, 0) << name;
        }
        flagged += !parsed.from.empty() && !SenderCheck::check(parsed.from.front()).empty();
    }
    // Tables are shared, matchers and converters per thread: four threads judge as one does.
    std::vector<std::vector<std::string>> results(4);
    {
        std::vector<std::jthread> threads;
        for (auto& result : results) {
            threads.emplace_back([&] {
                for (const auto& [name, bytes] : raw) {
                    result.push_back(judge(bytes));
                }
            });
        }
    }
    for (const auto& result : results) {
        EXPECT_EQ(result, expected);
    }
    EXPECT_GE(withTrackers, 8u);
    EXPECT_LE(withTrackers, 60u);
    EXPECT_GT(images, trackers);
    EXPECT_GE(withWarnings, 5u);
    EXPECT_LE(withWarnings, 60u);
    EXPECT_LE(flagged, raw.size() / 5);
}

} // namespace
} // namespace qs
