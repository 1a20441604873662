#include "model/ArchiveScan.h"
#include "search/SearchCache.h"

#include "BrowsingFixture.h"

namespace {

namespace fs = std::filesystem;
using qs::SearchCache;
using qs::test::message;
using qs::test::midMonth;
using qs::test::put;

class ScanCacheTest : public qs::test::BrowsingTest {};

// The scan keeps the search cache in step with index.json: written with a changed index,
// written again when missing although nothing changed, and never stamped after a save that
// failed, where it would claim an index.json that doesn't hold what it holds.
TEST_F(ScanCacheTest, FollowsEverySavedIndexAndNeverAFailedSave) {
    const fs::path meta = vault() / ".quernstead";
    const fs::path json = meta / "index.json";
    const fs::path cache = SearchCache::beside(json);
    auto found = [&](const char* query) {
        auto answer = SearchCache::open(cache, json);
        auto ranks = answer ? answer->search(query) : std::nullopt;
        return ranks ? std::optional(ranks->size()) : std::nullopt;
    };
    put(vault() / "A" / "INBOX" / "1.eml", message("Alpha invoice", midMonth(2020, 1)));
    put(vault() / "A" / "INBOX" / "2.eml", message("Beta invoice", midMonth(2021, 1)));

    ASSERT_TRUE(qs::ArchiveScan::run(vault(), json, {}));
    EXPECT_EQ(found("invoice"), 2u);
    put(vault() / "A" / "INBOX" / "3.eml", message("Gamma invoice", midMonth(2022, 1)));
    ASSERT_TRUE(qs::ArchiveScan::run(vault(), json, {}));
    EXPECT_EQ(found("invoice"), 3u);

    fs::remove(cache);
    auto unchanged = qs::ArchiveScan::run(vault(), json, {});
    ASSERT_TRUE(unchanged);
    EXPECT_FALSE(unchanged->changed);
    EXPECT_EQ(found("gamma"), 1u) << "a missing cache is written again";

    // A folder in the index file's place: the load finds nothing and the save fails.
    fs::remove(cache);
    fs::remove(json);
    fs::create_directories(json / "in-the-way");
    ASSERT_TRUE(qs::ArchiveScan::run(vault(), json, {}));
    EXPECT_FALSE(fs::exists(cache));
}

} // namespace
