#include "search/IndexFilePatch.h"
#include "search/SearchCache.h"
#include "search/SearchIndex.h"
#include "support/FileIO.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>

namespace qs {
namespace {

namespace fs = std::filesystem;

/// An index large enough to span many cache pages, with what the cache must carry exactly:
/// tombstones, records sharing a date, accents, an optional sender flag, long snippets.
SearchIndex sampleIndex() {
    SearchIndex index;
    const char* words[] = {"invoice", "invitation", "meeting", "résumé", "garden", "travel"};
    for (int i = 0; i < 400; ++i) {
        MessageRecord r;
        r.path = "acct" + std::to_string(i % 3) + "/INBOX/" + std::to_string(i) + ".eml";
        r.account = "acct" + std::to_string(i % 3);
        r.folder = "INBOX";
        r.subject = std::string(words[i % 6]) + " number " + std::to_string(i);
        r.fromName = i % 5 == 0 ? "" : "Zoë " + std::to_string(i % 7);
        r.fromEmail = "z" + std::to_string(i % 7) + "@example.com";
        r.to = "Ann <ann@example.org>";
        // Every tenth date repeats, so ties must come out as the index orders them.
        r.date = dateFromUnix(1'600'000'000 + (i % 10 == 0 ? 0 : i) * 3600);
        r.size = 1000 + i;
        r.snippet = std::string(180, char('a' + i % 26));
        r.attachments = i % 2;
        r.trackers = i % 3;
        r.remoteImages = i % 4;
        r.trust = SenderTrust(i % 4);
        r.replyToMismatch = i % 9 == 0;
        r.linkWarnings = i % 5;
        r.mtime = 1'600'000'000.5 + i;
        if (i % 11 == 0) {
            r.senderFlag = "Looks like a bank";
        }
        std::string text = r.subject + " " + words[(i / 6) % 6] + " body" + std::to_string(i % 40);
        index.add(std::move(r), text);
    }
    for (int i = 0; i < 400; i += 13) {
        index.remove("acct" + std::to_string(i % 3) + "/INBOX/" + std::to_string(i) + ".eml");
    }
    return index;
}

const char* const queries[] = {
    "invoice",        "inv",     "INVI",  "resume", "RÉS",  "garden body1", "body1 garden",
    "number 10",      "number",  "a",     "!!",     "",     "nothing",      "travel meeting",
    "body39 invoice", "example", "acct0", "body",   "zzzz",
};

class SearchCacheTest : public ::testing::Test {
protected:
    void SetUp() override {
        index_ = sampleIndex();
        index_.save(json_);
    }

    /// The paths the index itself finds, in its order.
    std::vector<std::string> expected(std::string_view query) const {
        std::vector<std::string> paths;
        for (const MessageRecord* r : index_.search(query)) {
            paths.push_back(r->path);
        }
        return paths;
    }

    std::optional<std::vector<std::string>> answered(std::string_view query) const {
        auto answer = SearchCache::answer(cache_, json_, query, 0);
        if (!answer) {
            return std::nullopt;
        }
        std::vector<std::string> paths;
        for (const auto& r : answer->shown) {
            paths.push_back(r.path);
        }
        EXPECT_EQ(answer->found, paths.size());
        return paths;
    }

    void expectRightAnswers(const std::string& when) const {
        for (const char* query : queries) {
            EXPECT_EQ(answered(query), expected(query)) << when << ", query “" << query << "”";
        }
    }

    /// What a reader can tell of an index: its live records by id, their postings (those of
    /// tombstones are skipped by every reader) and its answers.
    static void expectSameIndex(const SearchIndex& a, const SearchIndex& b,
                                const std::string& when) {
        auto livePostings = [](const SearchIndex& index) {
            std::map<std::string, std::vector<int64_t>> out;
            for (auto& [token, ids] : index.allPostings()) {
                std::erase_if(ids, [&](int64_t id) { return index.slot(id) == nullptr; });
                if (!ids.empty()) {
                    out.emplace(token, ids);
                }
            }
            return out;
        };
        EXPECT_EQ(a.liveRecords(), b.liveRecords()) << when;
        EXPECT_EQ(livePostings(a), livePostings(b)) << when;
        for (const auto& r : b.liveRecords()) {
            ASSERT_NE(a.record(r.path), nullptr) << when << ": " << r.path;
        }
        for (const char* query : queries) {
            std::vector<std::string> pathsA, pathsB;
            for (const MessageRecord* r : a.search(query)) {
                pathsA.push_back(r->path);
            }
            for (const MessageRecord* r : b.search(query)) {
                pathsB.push_back(r->path);
            }
            EXPECT_EQ(pathsA, pathsB) << when << ", query “" << query << "”";
        }
    }

    test::TemporaryDirectory folder_;
    fs::path json_ = folder_.path() / "index.json";
    fs::path cache_ = SearchCache::beside(json_);
    SearchIndex index_;
};

TEST_F(SearchCacheTest, FindsWhatTheIndexFindsAndCarriesWholeRecords) {
    ASSERT_FALSE(SearchCache::open(cache_, json_)) << "no cache before the first search";
    expectRightAnswers("built on demand");
    auto cache = SearchCache::open(cache_, json_);
    ASSERT_TRUE(cache);
    ASSERT_EQ(cache->count(), index_.count());
    // The cache answers for index.json, so records are compared as that file holds them.
    auto persisted = SearchIndex::load(json_);
    for (uint32_t rank = 0; rank < cache->count(); ++rank) {
        auto record = cache->record(rank);
        ASSERT_TRUE(record);
        const MessageRecord* original = persisted.record(record->path);
        ASSERT_NE(original, nullptr) << record->path;
        EXPECT_EQ(*record, *original);
    }
    EXPECT_FALSE(cache->record(uint32_t(cache->count())));

    auto limited = SearchCache::answer(cache_, json_, "inv", 3);
    ASSERT_TRUE(limited);
    EXPECT_EQ(limited->found, expected("inv").size());
    ASSERT_EQ(limited->shown.size(), 3u);
    EXPECT_EQ(limited->shown[2].path, expected("inv")[2]);
}

TEST_F(SearchCacheTest, BuildsTheIndexOfIndexJsonWithoutParsingIt) {
    // A trailing tombstone: slots the cache has no record for still count.
    index_.remove("acct0/INBOX/399.eml");
    index_.save(json_);
    SearchCache::rebuild(cache_, json_);
    auto fromJson = SearchIndex::load(json_);
    auto cache = SearchCache::open(cache_, json_);
    ASSERT_TRUE(cache);
    auto fromCache = cache->index();
    ASSERT_TRUE(fromCache);
    expectSameIndex(*fromCache, fromJson, "from the cache");
    EXPECT_EQ(fromCache->tokenCount(), fromJson.tokenCount());
    // It carries on as an index: a new record takes the slot after the last one, and a save
    // patches index.json as one from the file itself would.
    MessageRecord added;
    added.path = "acct9/INBOX/new.eml";
    for (auto* index : {&*fromCache, &fromJson}) {
        index->add(added, "invoice aardvark");
        index->remove("acct1/INBOX/1.eml");
    }
    expectSameIndex(*fromCache, fromJson, "after an add");
    ASSERT_TRUE(
        IndexFilePatch::write(*fromCache, *IndexFileMap::read(IndexFileMap::beside(json_)), json_));
    expectSameIndex(SearchIndex::load(json_), fromJson, "patched from the cache's index");
}

TEST_F(SearchCacheTest, FollowsIndexJsonWhenItChanges) {
    expectRightAnswers("first build");
    MessageRecord added;
    added.path = "acct9/INBOX/new.eml";
    added.date = dateFromUnix(1'700'000'000);
    index_.add(added, "invoice freshly arrived");
    index_.remove("acct1/INBOX/1.eml");
    index_.save(json_);
    ASSERT_FALSE(SearchCache::open(cache_, json_)) << "stale once index.json is rewritten";
    expectSameIndex(SearchCache::loadIndex(cache_, json_), index_, "stale cache");
    expectRightAnswers("after index.json changed");
    EXPECT_EQ(answered("freshly")->size(), 1u);
}

TEST_F(SearchCacheTest, AFewChangesLeaveTheCacheInPlaceWithADeltaBesideIt) {
    SearchCache::save(index_, json_);
    const std::string base = FileIO::read(cache_);
    const fs::path delta = folder_.path() / "index.delta";
    auto newest = [&] {
        std::vector<std::string> paths;
        auto records = index_.liveRecords();
        std::ranges::sort(records, [](const auto& a, const auto& b) {
            return a.date != b.date ? a.date > b.date : a.id > b.id;
        });
        for (const auto& r : records) {
            paths.push_back(r.path);
        }
        return paths;
    };
    for (int round = 0; round < 2; ++round) {
        auto when = "round " + std::to_string(round);
        index_ = SearchCache::loadIndex(cache_, json_);
        for (int i = 0; i < 5; ++i) {
            MessageRecord added;
            added.path =
                "acct9/INBOX/new" + std::to_string(round) + "-" + std::to_string(i) + ".eml";
            // Some on a date the cache's records have too: the later slot comes first.
            added.date = dateFromUnix(1'600'000'000 + (i % 2 == 0 ? 0 : 7200 * (i + round)));
            index_.add(added, "invoice arrived" + std::to_string(round));
        }
        index_.remove("acct" + std::to_string(round + 1) + "/INBOX/" + std::to_string(round + 1) +
                      ".eml");
        index_.remove("acct9/INBOX/new0-1.eml");
        index_.add(*index_.record("acct2/INBOX/20.eml"), "invoice refiled");
        SearchCache::save(index_, json_);

        EXPECT_TRUE(FileIO::read(cache_) == base) << when << ": the cache is left as it was";
        ASSERT_TRUE(fs::exists(delta)) << when;
        expectRightAnswers(when);
        auto cache = SearchCache::open(cache_, json_);
        ASSERT_TRUE(cache) << when;
        EXPECT_EQ(cache->count(), index_.count()) << when;
        auto records = cache->records();
        ASSERT_TRUE(records) << when;
        std::vector<std::string> listed;
        for (const auto& r : *records) {
            listed.push_back(r.path);
        }
        EXPECT_EQ(listed, newest()) << when;
        expectSameIndex(SearchCache::loadIndex(cache_, json_), SearchIndex::load(json_), when);
    }
    // A damaged delta is never believed: the cache is rebuilt whole, and the delta goes.
    std::string bytes = FileIO::read(delta);
    bytes[bytes.size() / 2] ^= 0x20;
    std::ofstream(delta, std::ios::binary | std::ios::trunc) << bytes;
    expectRightAnswers("damaged delta");
    EXPECT_FALSE(fs::exists(delta));
    EXPECT_FALSE(FileIO::read(cache_) == base);
}

TEST_F(SearchCacheTest, DamageOrTruncationIsRebuiltNeverBelieved) {
    SearchCache::rebuild(cache_, json_);
    const std::string good = FileIO::read(cache_);
    const size_t pages = good.size() / 4096;
    ASSERT_GT(pages, 20u) << "the sample must span many pages";

    struct Damage {
        std::string name;
        std::string bytes;
    };
    std::vector<Damage> damages;
    for (size_t page = 0; page <= pages; ++page) {
        damages.push_back({"cut at page " + std::to_string(page), good.substr(0, page * 4096)});
        if (page < pages) {
            std::string flipped = good;
            flipped[page * 4096 + (page * 977) % 4096] ^= 0x20;
            damages.push_back({"a byte flipped in page " + std::to_string(page), flipped});
        }
    }
    damages.push_back({"one byte short", good.substr(0, good.size() - 1)});
    damages.push_back({"one byte long", good + "x"});
    const auto persisted = SearchIndex::load(json_);
    for (const auto& damage : damages) {
        { std::ofstream(cache_, std::ios::binary | std::ios::trunc) << damage.bytes; }
        expectSameIndex(SearchCache::loadIndex(cache_, json_), persisted, damage.name);
        expectRightAnswers(damage.name);
        EXPECT_TRUE(FileIO::read(cache_) == good) << damage.name << ": rebuilt in place";
    }
}

TEST_F(SearchCacheTest, GivesNoAnswerWithoutASoundIndex) {
    struct Case {
        const char* name;
        std::optional<std::string> json;
    };
    const Case cases[] = {
        {"missing index.json", std::nullopt},
        {"invalid JSON", std::string("{\"version\":3,\"records\":[")},
        {"another version", std::string(R"({"version":2,"records":[],"postings":{}})")},
    };
    for (const auto& c : cases) {
        fs::remove(json_);
        fs::remove(cache_);
        if (c.json) {
            std::ofstream(json_, std::ios::binary) << *c.json;
        }
        EXPECT_FALSE(SearchCache::answer(cache_, json_, "invoice", 0)) << c.name;
        EXPECT_FALSE(fs::exists(cache_)) << c.name;
    }
}

} // namespace
} // namespace qs
