#include "search/IndexFilePatch.h"
#include "search/SearchIndex.h"
#include "search/SearchIndexCoder.h"
#include "support/AtomicFile.h"
#include "support/FileIO.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

namespace qs {
namespace {

MessageRecord sampleRecord() {
    MessageRecord r;
    r.path = "me@example.com/INBOX/2024/Hello.eml";
    r.account = "me@example.com";
    r.folder = "INBOX";
    r.subject = "Quote \" backslash \\ tab\t newline\n bell\x07 done";
    r.fromName = "Zoë";
    r.fromEmail = "zoe@example.com";
    r.to = "Ann <ann@example.org>, bob@example.net";
    r.date = dateFromUnix(1709294400);
    r.size = 12345;
    r.snippet = " Hi there";
    r.attachments = 2;
    r.trackers = 3;
    r.remoteImages = 4;
    r.trust = SenderTrust::partial;
    r.replyToMismatch = true;
    r.linkWarnings = 5;
    r.mtime = 1709294400.25;
    r.senderFlag = "Looks like PayPal";
    return r;
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

void expectSameIndex(const SearchIndex& a, const SearchIndex& b) {
    ASSERT_EQ(a.slotCount(), b.slotCount());
    for (size_t i = 0; i < a.slotCount(); ++i) {
        const auto* ra = a.slot(int64_t(i));
        const auto* rb = b.slot(int64_t(i));
        ASSERT_EQ(ra == nullptr, rb == nullptr) << "slot " << i;
        if (ra) {
            EXPECT_EQ(*ra, *rb);
        }
    }
    EXPECT_EQ(a.count(), b.count());
    EXPECT_EQ(a.allPostings(), b.allPostings());
}

TEST(SearchIndexFile, WritesOneRecordWithEveryKeyInOrder) {
    SearchIndex index;
    index.add(sampleRecord(), "hello");
    EXPECT_EQ(index.encode(),
              R"({"version":3,"records":[{"id":0,"path":"me@example.com/INBOX/2024/Hello.eml",)"
              R"("account":"me@example.com","folder":"INBOX",)"
              R"("subject":"Quote \" backslash \\ tab\t newline\n bell\u0007 done",)"
              R"("fromName":"Zoë","fromEmail":"zoe@example.com",)"
              R"("to":"Ann <ann@example.org>, bob@example.net","date":"2024-03-01T12:00:00Z",)"
              R"("size":12345,"snippet":" Hi there","attachments":2,"trackers":3,)"
              R"("remoteImages":4,"trust":"partial","replyToMismatch":true,"linkWarnings":5,)"
              R"("mtime":1709294400.25,"senderFlag":"Looks like PayPal"}],)"
              R"("postings":{"hello":[0]}})");
}

TEST(SearchIndexFile, OmitsAnAbsentSenderFlagAndWritesTombstonesAsNull) {
    SearchIndex index;
    auto first = sampleRecord();
    first.senderFlag.reset();
    index.add(first, "one");
    auto second = sampleRecord();
    second.path = "other.eml";
    index.add(second, "two");
    index.add(first, "three");
    auto json = nlohmann::json::parse(index.encode());
    ASSERT_EQ(json["records"].size(), 3u);
    EXPECT_TRUE(json["records"][0].is_null());
    EXPECT_FALSE(json["records"][2].contains("senderFlag"));
    EXPECT_EQ(json["records"][2].size(), 18u);
    EXPECT_EQ(json["records"][1]["senderFlag"], "Looks like PayPal");
    EXPECT_EQ(json["postings"]["one"], nlohmann::json::array({0}));
}

TEST(SearchIndexFile, DatesKeepWholeSecondsAndMtimeKeepsItsFraction) {
    SearchIndex index;
    auto r = sampleRecord();
    r.date = dateFromUnix(1709294400) + std::chrono::milliseconds(700);
    index.add(r, "");
    auto loaded = SearchIndex::decode(index.encode());
    ASSERT_EQ(loaded.count(), 1u);
    EXPECT_EQ(loaded.slot(0)->date, dateFromUnix(1709294400));
    EXPECT_EQ(loaded.slot(0)->mtime, 1709294400.25);
}

// Adds records `from` up to `to` of random words, removing an earlier one every fifth.
void addRandom(SearchIndex& index, int from, int to, std::mt19937& random) {
    const std::vector<std::string> words = {"invoice", "January", "résumé", "東京",    "Zoë",
                                            "meeting", "lunch",   "x²",     "ünïcödé", "report"};
    for (int i = from; i < to; ++i) {
        auto r = sampleRecord();
        r.path = "acct/INBOX/" + std::to_string(i % 7) + "/m" + std::to_string(i) + ".eml";
        r.subject = words[random() % words.size()] + " " + std::to_string(i);
        r.date = dateFromUnix(1'600'000'000 + int64_t(random() % 100'000'000));
        r.mtime = 1'600'000'000.0 + double(random() % 1000) / 7.0;
        r.trust = SenderTrust(random() % 4);
        r.replyToMismatch = random() % 2 == 0;
        if (random() % 3 == 0) {
            r.senderFlag.reset();
        }
        std::string text;
        for (int w = 0; w < 20; ++w) {
            text += words[random() % words.size()] + std::to_string(random() % 50) + " ";
        }
        index.add(r, text);
        if (i % 5 == 0) {
            index.remove("acct/INBOX/" + std::to_string((i / 2) % 7) + "/m" +
                         std::to_string(i / 2) + ".eml");
        }
    }
}

TEST(SearchIndexFile, SaveAndLoadPreserveEveryRecordAndPosting) {
    test::TemporaryDirectory directory;
    auto path = directory.path() / "vault" / ".quernstead" / "index.json";
    SearchIndex index;
    std::mt19937 random(7);
    addRandom(index, 0, 300, random);
    index.save(path);
    auto loaded = SearchIndex::load(path);
    expectSameIndex(index, loaded);
    EXPECT_EQ(loaded.encode(), index.encode());
    for (auto query : {"inv", "res", "東", "zoe 1", "x²"}) {
        std::vector<int64_t> a, b;
        for (const auto* r : index.search(query)) {
            a.push_back(r->id);
        }
        for (const auto* r : loaded.search(query)) {
            b.push_back(r->id);
        }
        std::sort(a.begin(), a.end());
        std::sort(b.begin(), b.end());
        EXPECT_EQ(a, b) << query;
    }
    // Saving again replaces the file in one step and leaves no temporary file behind.
    loaded.save(path);
    for (const auto& entry : std::filesystem::directory_iterator(path.parent_path())) {
        EXPECT_FALSE(entry.path().filename().string().starts_with(AtomicFile::temporaryPrefix));
    }
}

TEST(SearchIndexFile, ASaveAfterChangesPatchesTheFileIntoWhatAWholeSaveWrites) {
    test::TemporaryDirectory directory;
    auto path = directory.path() / "index.json";
    std::mt19937 random(11);
    SearchIndex first;
    addRandom(first, 0, 200, random);
    first.save(path);
    auto firstLive = [](const SearchIndex& index) {
        return index.liveRecords().front().path;
    };
    auto lastLive = [](const SearchIndex& index) {
        return index.liveRecords().back().path;
    };
    struct Change {
        const char* name;
        std::function<void(SearchIndex&)> apply;
    };
    const Change changes[] = {
        {"nothing",
         [](SearchIndex&) {
         }},
        {"new records, new tokens before and after all others",
         [&](SearchIndex& index) {
             addRandom(index, 200, 230, random);
             auto r = sampleRecord();
             r.path = "new.eml";
             index.add(r, "00first 龥龥 meeting7");
         }},
        {"the first and the last slot removed",
         [&](SearchIndex& index) {
             index.remove(firstLive(index));
             index.remove(lastLive(index));
         }},
        {"a file re-indexed, a new record removed again",
         [&](SearchIndex& index) {
             index.add(*index.record("acct/INBOX/3/m3.eml"), "again 00first");
             auto r = sampleRecord();
             r.path = "brief.eml";
             index.add(r, "brief");
             index.remove("brief.eml");
         }},
    };
    for (const auto& change : changes) {
        SCOPED_TRACE(change.name);
        auto index = SearchIndex::load(path);
        change.apply(index);
        auto map = IndexFileMap::read(IndexFileMap::beside(path));
        ASSERT_TRUE(map);
        auto patched = IndexFilePatch::write(index, *map, path);
        ASSERT_TRUE(patched);
        EXPECT_EQ(FileIO::read(path), index.encode());
        IndexFileMap whole;
        SearchIndexCoder::encode(
            index, [](std::string_view) {}, &whole);
        EXPECT_EQ(*patched, whole);
        patched->json = *SearchCacheLayout::FileStamp::of(path);
        patched->write(IndexFileMap::beside(path));
    }
    // A file written by another hand since: the map no longer fits, and a whole save follows.
    auto index = SearchIndex::load(path);
    auto map = IndexFileMap::read(IndexFileMap::beside(path));
    writeFile(path, index.encode());
    EXPECT_FALSE(IndexFilePatch::write(index, *map, path));
    index.remove(firstLive(index));
    index.save(path);
    EXPECT_EQ(FileIO::read(path), index.encode());
}

TEST(SearchIndexFile, InvalidUTF8IsReplacedSoTheFileStaysReadable) {
    SearchIndex index;
    auto r = sampleRecord();
    r.subject = "bad \xFF\xFE byte";
    index.add(r, "");
    auto loaded = SearchIndex::decode(index.encode());
    ASSERT_EQ(loaded.count(), 1u);
    EXPECT_EQ(loaded.slot(0)->subject, "bad \uFFFD\uFFFD byte");
}

TEST(SearchIndexFile, ReadsPostingsInAnyKeyOrder) {
    // Postings written by another writer need not be sorted; prefix search must still work.
    SearchIndex index;
    auto r = sampleRecord();
    r.senderFlag.reset();
    index.add(r, "");
    auto json = nlohmann::json::parse(index.encode());
    json["postings"] = nlohmann::json::object();
    auto text = json.dump();
    auto at = text.find("\"postings\":{}");
    text.replace(at, 13, R"("postings":{"zulu":[0],"alpha":[0],"alphabet":[0],"mike":[0,7,-1]})");
    auto loaded = SearchIndex::decode(text);
    ASSERT_EQ(loaded.count(), 1u);
    EXPECT_EQ(loaded.search("alp").size(), 1u);
    EXPECT_EQ(loaded.search("zu").size(), 1u);
    EXPECT_EQ(loaded.search("mi").size(), 1u);
    // Ids outside the records are dropped.
    EXPECT_EQ(loaded.postings("mike"), std::vector<int64_t>{0});
}

TEST(SearchIndexFile, ARepeatedTokenKeyJoinsItsLists) {
    SearchIndex index;
    auto r = sampleRecord();
    index.add(r, "");
    r.path = "second.eml";
    index.add(r, "");
    auto text = index.encode();
    auto at = text.find("\"postings\":{}");
    ASSERT_NE(at, std::string::npos);
    text.replace(at, 13, R"("postings":{"aa":[1],"bb":[0],"aa":[0,1]})");
    auto loaded = SearchIndex::decode(text);
    EXPECT_EQ(loaded.postings("aa"), (std::vector<int64_t>{0, 1}));
    EXPECT_EQ(loaded.search("aa").size(), 2u);
}

TEST(SearchIndexFile, ToleratesKeysInAnotherOrderAndUnknownKeys) {
    auto text =
        R"({"postings":{"hi":[0]},"extra":1,"records":[{"mtime":1,"senderFlag":null,)"
        R"("linkWarnings":0,"replyToMismatch":false,"trust":"verified","remoteImages":0,)"
        R"("trackers":0,"attachments":0,"snippet":"","size":1,"date":"2020-01-01T00:00:00Z",)"
        R"("to":"","fromEmail":"","fromName":"","subject":"s","folder":"","account":"",)"
        R"("path":"p.eml","id":0,"unknown":[1,2]}],"version":3})";
    auto loaded = SearchIndex::decode(text);
    ASSERT_EQ(loaded.count(), 1u);
    EXPECT_EQ(loaded.record("p.eml")->trust, SenderTrust::verified);
    EXPECT_FALSE(loaded.record("p.eml")->senderFlag.has_value());
    EXPECT_EQ(loaded.search("hi").size(), 1u);
}

struct DamagedCase {
    const char* name;
    std::string text;
};

class DamagedIndexTest : public testing::TestWithParam<DamagedCase> {};

TEST_P(DamagedIndexTest, GivesAnEmptyIndex) {
    test::TemporaryDirectory directory;
    auto path = directory.path() / "index.json";
    writeFile(path, GetParam().text);
    auto loaded = SearchIndex::load(path);
    EXPECT_EQ(loaded.count(), 0u);
    EXPECT_EQ(loaded.slotCount(), 0u);
    EXPECT_EQ(loaded.tokenCount(), 0u);
}

std::string validWith(std::string_view from, std::string_view to) {
    SearchIndex index;
    auto r = sampleRecord();
    index.add(r, "hello");
    auto text = index.encode();
    auto at = text.find(from);
    EXPECT_NE(at, std::string::npos);
    return text.replace(at, from.size(), to);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DamagedIndexTest,
    testing::Values(
        DamagedCase{"Version2", validWith("\"version\":3", "\"version\":2")},
        DamagedCase{"VersionMissing", validWith("\"version\":3,", "")},
        DamagedCase{"VersionString", validWith("\"version\":3", "\"version\":\"3\"")},
        DamagedCase{"UnknownTrust", validWith("\"trust\":\"partial\"", "\"trust\":\"trusted\"")},
        DamagedCase{"MissingRequiredKey", validWith("\"snippet\":\" Hi there\",", "")},
        DamagedCase{"BadDate", validWith("2024-03-01T12:00:00Z", "yesterday")},
        DamagedCase{"WrongType", validWith("\"size\":12345", "\"size\":\"big\"")},
        DamagedCase{"RecordsNotArray", validWith("\"records\":[", "\"records\":{\"a\":")},
        DamagedCase{"PostingsMissing", validWith(",\"postings\":{\"hello\":[0]}", "")},
        DamagedCase{"PostingNotNumber", validWith("\"hello\":[0]", "\"hello\":[\"0\"]")},
        DamagedCase{"PostingPastAnyInteger",
                    validWith("\"hello\":[0]", "\"hello\":[99999999999999999999,0]")},
        DamagedCase{"Truncated", validWith("\"postings\":{\"hello\":[0]}}", "\"postings\":{\"hel")},
        DamagedCase{"NotJSON", "this is not json"}, DamagedCase{"Empty", ""},
        DamagedCase{"Array", "[1,2,3]"}, DamagedCase{"InvalidUTF8", validWith("Zoë", "Zo\xFF")}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SearchIndexFile, AMissingFileGivesAnEmptyIndex) {
    test::TemporaryDirectory directory;
    EXPECT_EQ(SearchIndex::load(directory.path() / "nothing.json").count(), 0u);
}

TEST(SearchIndexFile, SaveFailsWhereTheFolderCantBeMade) {
    test::TemporaryDirectory directory;
    writeFile(directory.path() / "file", "x");
    SearchIndex index;
    EXPECT_ANY_THROW(index.save(directory.path() / "file" / "index.json"));
}

} // namespace
} // namespace qs
