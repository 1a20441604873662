#include "search/SearchIndex.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace qs {
namespace {

MessageRecord recordAt(std::string path, int64_t unixTime) {
    MessageRecord r;
    r.path = std::move(path);
    r.date = dateFromUnix(unixTime);
    r.mtime = double(unixTime);
    return r;
}

std::vector<std::string> paths(const std::vector<const MessageRecord*>& results) {
    std::vector<std::string> out;
    for (const auto* r : results) {
        out.push_back(r->path);
    }
    return out;
}

class SearchIndexTest : public testing::Test {
protected:
    void SetUp() override {
        index.add(recordAt("a/INBOX/2024/invoice.eml", 1000), "Your invoice for January");
        index.add(recordAt("a/INBOX/2024/inventory.eml", 3000),
                  "Inventory report, résumé attached");
        index.add(recordAt("a/Sent/2024/lunch.eml", 2000), "Lunch in January? Café at noon");
    }

    std::vector<std::string> find(std::string_view query) { return paths(index.search(query)); }

    SearchIndex index;
};

// Every word is a prefix and all must match; one-letter words in a longer query are dropped;
// accents and case fold away; a query without tokens finds nothing.
TEST_F(SearchIndexTest, QueryWordsArePrefixesThatMustAllMatch) {
    const std::string invoice = "a/INBOX/2024/invoice.eml";
    const std::string inventory = "a/INBOX/2024/inventory.eml";
    const std::string lunch = "a/Sent/2024/lunch.eml";
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"inv jan", {invoice}},
        {"inv", {inventory, invoice}},
        {"jan", {lunch, invoice}},
        {"inv lunch", {}},
        {"zebra", {}},
        {"invoices", {}},
        {"a invoice", {invoice}},
        {"invoice a", {invoice}},
        {"jan jan january", {lunch, invoice}},
        {"RESUME", {inventory}},
        {"Résu", {inventory}},
        {"cafe", {lunch}},
        {"CAFÉ", {lunch}},
        {"", {}},
        {"a", {}},
        {"!!!", {}},
        {"   ", {}}};
    for (const auto& [query, expected] : rows) {
        EXPECT_EQ(find(query), expected) << query;
    }
}

TEST_F(SearchIndexTest, ResultsComeNewestFirst) {
    index.add(recordAt("b/old.eml", 10), "january invoice");
    index.add(recordAt("b/new.eml", 99999), "january invoice");
    EXPECT_EQ(find("jan"), (std::vector<std::string>{"b/new.eml", "a/Sent/2024/lunch.eml",
                                                     "a/INBOX/2024/invoice.eml", "b/old.eml"}));
}

TEST_F(SearchIndexTest, PrefixBoundsAtBothEndsOfTheTokenList) {
    index.add(recordAt("z.eml", 5), "aaaa zzzz");
    EXPECT_EQ(find("aa"), std::vector<std::string>{"z.eml"});
    EXPECT_EQ(find("zzzz"), std::vector<std::string>{"z.eml"});
    EXPECT_TRUE(find("zzzzz").empty());
    EXPECT_TRUE(find("00").empty());
}

TEST(SearchIndex, LongWordsAreFoundByTheSameLongQuery) {
    SearchIndex index;
    std::string word(60, 'x');
    index.add(recordAt("long.eml", 1), "see " + word);
    EXPECT_EQ(index.postings(std::string(40, 'x')), std::vector<int64_t>{0});
    EXPECT_EQ(index.search(word).size(), 1u);
    EXPECT_EQ(index.search(std::string(40, 'x') + "yyy").size(), 1u);
}

TEST(SearchIndex, AddSetsIdsAndEntersEachTokenOncePerRecord) {
    SearchIndex index;
    index.add(recordAt("one.eml", 1), "hello hello hello world");
    index.add(recordAt("two.eml", 2), "hello again");
    EXPECT_EQ(index.record("one.eml")->id, 0);
    EXPECT_EQ(index.record("two.eml")->id, 1);
    EXPECT_EQ(index.postings("hello"), (std::vector<int64_t>{0, 1}));
    EXPECT_EQ(index.postings("world"), std::vector<int64_t>{0});
    EXPECT_EQ(index.count(), 2u);
    EXPECT_EQ(index.slotCount(), 2u);
}

TEST(SearchIndex, ReAddingAPathLeavesATombstoneAndTakesANewSlot) {
    SearchIndex index;
    index.add(recordAt("m.eml", 1), "first version");
    index.add(recordAt("other.eml", 2), "unrelated");
    auto second = recordAt("m.eml", 3);
    second.subject = "changed";
    index.add(second, "second version");
    EXPECT_EQ(index.count(), 2u);
    EXPECT_EQ(index.slotCount(), 3u);
    EXPECT_EQ(index.slot(0), nullptr);
    ASSERT_NE(index.record("m.eml"), nullptr);
    EXPECT_EQ(index.record("m.eml")->id, 2);
    EXPECT_EQ(index.record("m.eml")->subject, "changed");
    // The old tokens still name the dead slot, and find nothing.
    EXPECT_EQ(index.postings("first"), std::vector<int64_t>{0});
    EXPECT_TRUE(index.search("first").empty());
    EXPECT_EQ(paths(index.search("version")), std::vector<std::string>{"m.eml"});
}

TEST(SearchIndex, RemoveKeepsPostingsUntilCompaction) {
    SearchIndex index;
    index.add(recordAt("keep.eml", 1), "shared keeper");
    index.add(recordAt("gone.eml", 2), "shared goner");
    index.remove("gone.eml");
    index.remove("never-there.eml");
    EXPECT_EQ(index.record("gone.eml"), nullptr);
    EXPECT_EQ(index.count(), 1u);
    EXPECT_EQ(index.postings("goner"), std::vector<int64_t>{1});
    EXPECT_TRUE(index.search("goner").empty());
    EXPECT_EQ(paths(index.search("shared")), std::vector<std::string>{"keep.eml"});

    index.compact();
    EXPECT_EQ(index.slotCount(), 1u);
    EXPECT_TRUE(index.postings("goner").empty());
    EXPECT_EQ(index.postings("shared"), std::vector<int64_t>{0});
    EXPECT_EQ(index.tokenCount(), 2u);
}

TEST(SearchIndex, CompactRenumbersInSlotOrder) {
    SearchIndex index;
    for (int i = 0; i < 6; ++i) {
        index.add(recordAt("m" + std::to_string(i) + ".eml", i), "common word" + std::to_string(i));
    }
    index.remove("m0.eml");
    index.remove("m3.eml");
    index.remove("m4.eml");
    // Records handed out shared (a list holds them on another thread) never change.
    auto handedOut = index.sharedRecords();
    index.compact();
    EXPECT_EQ(handedOut[2]->id, 5) << "compact copies a shared record before renumbering it";
    auto live = index.liveRecords();
    ASSERT_EQ(live.size(), 3u);
    EXPECT_EQ(live[0].path, "m1.eml");
    EXPECT_EQ(live[1].path, "m2.eml");
    EXPECT_EQ(live[2].path, "m5.eml");
    for (int64_t i = 0; i < 3; ++i) {
        EXPECT_EQ(live[size_t(i)].id, i);
        EXPECT_EQ(index.record(live[size_t(i)].path)->id, i);
    }
    EXPECT_EQ(index.postings("common"), (std::vector<int64_t>{0, 1, 2}));
    EXPECT_EQ(index.postings("word5"), std::vector<int64_t>{2});
    EXPECT_TRUE(index.postings("word3").empty());
    // The index keeps working after compaction.
    index.add(recordAt("m6.eml", 6), "common");
    EXPECT_EQ(index.record("m6.eml")->id, 3);
    EXPECT_EQ(index.search("common").size(), 4u);
}

// Paths are looked up through an open-addressing table: thousands of adds, removals and
// re-adds (long probe runs, removals inside them) must agree with a plain map throughout.
TEST(SearchIndex, FindsEveryLivePathThroughAddsAndRemovals) {
    SearchIndex index;
    std::map<std::string, bool> live;
    std::mt19937 random(11);
    for (int step = 0; step < 20'000; ++step) {
        std::string path = "a/" + std::to_string(random() % 3000) + ".eml";
        if (random() % 3 == 0) {
            index.remove(path);
            live[path] = false;
        } else {
            index.add(recordAt(path, step), "word");
            live[path] = true;
        }
        if (step % 5000 == 4999 && index.needsCompaction()) {
            index.compact();
        }
    }
    size_t count = 0;
    for (const auto& [path, isLive] : live) {
        const MessageRecord* found = index.record(path);
        ASSERT_EQ(found != nullptr, isLive) << path;
        if (found != nullptr) {
            EXPECT_EQ(found->path, path);
            EXPECT_EQ(index.slot(found->id), found);
            ++count;
        }
    }
    EXPECT_EQ(index.count(), count);
}

TEST(SearchIndex, SearchAfterRemovalSkipsTheTombstoneWithoutRebuilding) {
    SearchIndex index;
    index.add(recordAt("a.eml", 1), "alpha");
    index.add(recordAt("b.eml", 2), "alpha");
    EXPECT_EQ(index.search("alpha").size(), 2u);
    index.remove("b.eml");
    EXPECT_EQ(paths(index.search("alpha")), std::vector<std::string>{"a.eml"});
}

struct CompactionCase {
    int tombstones;
    int live;
    bool expected;
};

class CompactionThresholdTest : public testing::TestWithParam<CompactionCase> {};

TEST_P(CompactionThresholdTest, CompactsOnlyWhenTombstonesOutnumberLiveByMoreThan100) {
    SearchIndex index;
    for (int i = 0; i < GetParam().tombstones; ++i) {
        index.add(recordAt("dead" + std::to_string(i), i), "x");
        index.remove("dead" + std::to_string(i));
    }
    for (int i = 0; i < GetParam().live; ++i) {
        index.add(recordAt("live" + std::to_string(i), i), "x");
    }
    EXPECT_EQ(index.needsCompaction(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Thresholds, CompactionThresholdTest,
                         testing::Values(CompactionCase{0, 0, false}, CompactionCase{100, 0, false},
                                         CompactionCase{101, 0, true},
                                         CompactionCase{110, 10, false},
                                         CompactionCase{111, 10, true}));

TEST(SearchIndex, LiveRecordsAreInSlotOrder) {
    SearchIndex index;
    index.add(recordAt("b.eml", 5), "");
    index.add(recordAt("a.eml", 9), "");
    index.add(recordAt("c.eml", 1), "");
    index.remove("a.eml");
    auto live = index.liveRecords();
    ASSERT_EQ(live.size(), 2u);
    EXPECT_EQ(live[0].path, "b.eml");
    EXPECT_EQ(live[1].path, "c.eml");
}

// The figure the search benchmark reports: each part of a record and each posting counts once,
// and a removed record stops counting.
TEST(SearchIndex, MemoryUsageCountsRecordsPostingsAndTokens) {
    const std::string big(100000, 'x');
    using Field = std::string MessageRecord::*;
    for (Field field : {&MessageRecord::path, &MessageRecord::subject, &MessageRecord::snippet,
                        &MessageRecord::to, &MessageRecord::fromName, &MessageRecord::fromEmail}) {
        SearchIndex plain, large;
        plain.add(recordAt("p", 1), "");
        MessageRecord record = recordAt("p", 1);
        record.*field = big;
        large.add(record, "");
        size_t grown = large.memoryUsage() - plain.memoryUsage();
        EXPECT_GE(grown, big.size() - 15);
        EXPECT_LE(grown, big.size() + 64);
        large.remove(record.path);
        EXPECT_LT(large.memoryUsage(), big.size());
    }

    SearchIndex empty, shared, distinct;
    for (int i = 0; i < 2000; ++i) {
        std::string path = std::to_string(i);
        empty.add(recordAt(path, i), "");
        shared.add(recordAt(path, i), "common");
        distinct.add(recordAt(path, i), "w" + std::to_string(10000 + i));
    }
    // One word in every record: one list of 2000 postings.
    size_t oneList = shared.memoryUsage() - empty.memoryUsage();
    EXPECT_GE(oneList, 2000 * sizeof(uint32_t));
    EXPECT_LE(oneList, 2 * 2000 * sizeof(uint32_t) + 1024);
    // A word of six letters per record: each brings its list, one posting, its bytes and its
    // start in the token table.
    EXPECT_GE(distinct.memoryUsage() - empty.memoryUsage(),
              2000 * (sizeof(std::vector<uint32_t>) + 2 * sizeof(uint32_t) + 6));
}

} // namespace
} // namespace qs
