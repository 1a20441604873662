#include "model/AppStore.h"
#include "model/ArchiveScan.h"

#include "BrowsingFixture.h"
#include "support/Corpus.h"

#include <functional>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using qs::AppStore;
using qs::MonthKey;
using qs::SidebarItem;
using qs::test::message;
using qs::test::midMonth;
using qs::test::put;

std::vector<std::string> paths(const std::vector<qs::RecordRef>& records) {
    std::vector<std::string> out;
    for (const auto& record : records) {
        out.push_back(record->path);
    }
    return out;
}

class ScanTest : public qs::test::BrowsingTest {};

// A vault of real and generated messages: the first scan reads them all and publishes as it
// goes; a second reads nothing and writes nothing; only a clear change of modification time
// reads a file again; a deleted file leaves and the index file is rewritten.
TEST_F(ScanTest, ReconcilesTheIndexWithTheFiles) {
    size_t expected = 0;
    auto corpus = qs::test::corpusMessages();
    for (size_t i = 0; i < corpus.size(); ++i) {
        put(vault() / "Real" / "INBOX" / (std::to_string(i) + ".eml"), corpus[i].bytes);
        ++expected;
    }
    constexpr int generated = 2'300;
    for (int i = 0; i < generated; ++i) {
        put(vault() / "Gen" / ("Box " + std::to_string(i % 7)) / (std::to_string(i) + ".eml"),
            message("Generated " + std::to_string(i), midMonth(2000 + i % 25, 1 + i % 12)));
        ++expected;
    }
    put(vault() / "Gen" / "INBOX" / "CAPS.EML", message("Upper case name", midMonth(2020, 1)));
    ++expected;
    put(vault() / "Gen" / "INBOX" / "notes.txt", message("Not mail", midMonth(2020, 1)));
    put(vault() / "Gen" / ".hidden" / "h.eml", message("Hidden", midMonth(2020, 1)));
    put(vault() / ".quernstead" / "stray.eml", message("Meta", midMonth(2020, 1)));

    AppStore store;
    std::vector<size_t> published;
    QObject::connect(&store, &AppStore::recordsChanged,
                     [&] { published.push_back(store.records().size()); });
    QSignalSpy progress(&store, &AppStore::indexingChanged);
    ASSERT_TRUE(scan(store));
    EXPECT_EQ(store.records().size(), expected);
    EXPECT_FALSE(store.indexing());
    EXPECT_EQ(store.index().count(), expected);
    // Progress every 50 files; the list fills as the scan goes, each interim publication a
    // quarter larger than the one before, then the final one.
    EXPECT_GE(progress.count(), static_cast<int>(expected / qs::ArchiveScan::publishEvery));
    ASSERT_GE(published.size(), 5u);
    EXPECT_LT(published.size(), expected / qs::ArchiveScan::publishEvery);
    EXPECT_EQ(published.front(), qs::ArchiveScan::publishEvery);
    for (size_t i = 1; i + 1 < published.size(); ++i) {
        EXPECT_GE(published[i], published[i - 1] + published[i - 1] / 4) << i;
    }
    EXPECT_EQ(published.back(), expected);
    for (size_t i = 1; i < store.records().size(); ++i) {
        ASSERT_GE(store.records()[i - 1]->date, store.records()[i]->date) << i;
    }
    const auto indexFile = store.layout().indexURL();
    ASSERT_TRUE(fs::exists(indexFile));

    auto second = qs::ArchiveScan::run(vault(), indexFile, {});
    ASSERT_TRUE(second);
    EXPECT_EQ(second->filesRead, 0u);
    EXPECT_FALSE(second->changed);

    // Rewritten files: one with its time moved by 1.5 s, one by 0.5 s; one file deleted.
    const std::string touched = "Gen/Box 1/1.eml";
    const std::string nudged = "Gen/Box 2/2.eml";
    const std::string deleted = "Gen/Box 3/3.eml";
    for (const auto& [path, shift] : {std::pair{touched, 1.5}, std::pair{nudged, 0.5}}) {
        const double before = store.index().record(path)->mtime;
        put(vault() / path, message("Rewritten", midMonth(2001, 2)));
        qs::test::setModificationTime(vault() / path, before + shift);
    }
    fs::remove(vault() / deleted);
    const auto indexWritten = fs::last_write_time(indexFile);

    auto third = qs::ArchiveScan::run(vault(), indexFile, {});
    ASSERT_TRUE(third);
    EXPECT_EQ(third->filesRead, 1u);
    EXPECT_TRUE(third->changed);
    EXPECT_EQ(third->index.record(touched)->subject, "Rewritten");
    EXPECT_EQ(third->index.record(nudged)->subject, "Generated 2");
    EXPECT_EQ(third->index.record(deleted), nullptr);
    EXPECT_NE(fs::last_write_time(indexFile), indexWritten);

    // The store's own scan drops the deleted file from the list.
    ASSERT_TRUE(scan(store));
    EXPECT_EQ(store.records().size(), expected - 1);
    auto listed = paths(store.records());
    EXPECT_EQ(std::ranges::count(listed, deleted), 0);
}

// Links: one to a message counts under its own name; one to a folder is not entered, so mail
// is never listed twice; a dangling link and a folder that can't be opened are passed over.
TEST_F(ScanTest, WalkFollowsLinksToMessagesButNotToFolders) {
    put(vault() / "A" / "INBOX" / "1.eml", message("One", midMonth(2020, 1)));
    put(vault() / "A" / "Locked" / "2.eml", message("Two", midMonth(2020, 2)));
    put(vault() / "elsewhere.eml", message("Linked", midMonth(2020, 3)));
    qs::test::setModificationTime(vault() / "A" / "INBOX" / "1.eml", 1'600'000'000.25);
    fs::create_symlink(vault() / "elsewhere.eml", vault() / "A" / "INBOX" / "link.eml");
    fs::create_symlink(vault() / "A" / "INBOX", vault() / "A" / "Mirror");
    fs::create_symlink(vault() / "gone.eml", vault() / "A" / "INBOX" / "dangling.eml");
    fs::permissions(vault() / "A" / "Locked", fs::perms::none);
    const bool locked = ::access((vault() / "A" / "Locked").c_str(), R_OK) != 0;

    auto files = qs::ArchiveScan::walk(vault());
    fs::permissions(vault() / "A" / "Locked", fs::perms::owner_all);

    std::vector<std::string> expected{"A/INBOX/1.eml", "A/INBOX/link.eml", "elsewhere.eml"};
    if (!locked) { // running as root: permissions don't stop the walk
        expected.insert(expected.begin() + 2, "A/Locked/2.eml");
    }
    std::vector<std::string> found;
    for (const auto& [path, mtime] : files) {
        found.push_back(path);
    }
    EXPECT_EQ(found, expected);
    EXPECT_DOUBLE_EQ(files["A/INBOX/1.eml"], 1'600'000'000.25);
}

TEST_F(ScanTest, EmptyVaultShowsNothingAndWritesNothing) {
    fs::create_directories(vault());
    AppStore store;
    ASSERT_TRUE(scan(store));
    EXPECT_TRUE(store.visible().empty());
    EXPECT_TRUE(store.groups().empty());
    EXPECT_FALSE(store.timeline().currentMonth());
    EXPECT_FALSE(store.indexing());
    EXPECT_FALSE(fs::exists(store.layout().indexURL()));
    EXPECT_EQ(store.vaultSummary().toStdString(), "0 messages · 0 bytes");
}

// A small vault with known months: May 2024, two in March 2024, December 2023.
class ViewTest : public qs::test::BrowsingTest {
protected:
    void SetUp() override {
        BrowsingTest::SetUp();
        put(vault() / a1, message("Alpha report", midMonth(2024, 5)));
        put(vault() / a2, message("Beta notes", midMonth(2024, 3)));
        put(vault() / b1, message("Delta zebra", midMonth(2024, 3) + 3'600, "Bo <bo@example.com>"));
        put(vault() / s1, message("Gamma plan", midMonth(2023, 12)));
    }
    const std::string a1 = "Ann/INBOX/a1.eml";
    const std::string a2 = "Ann/INBOX/a2.eml";
    const std::string b1 = "Bob/INBOX/b1.eml";
    const std::string s1 = "Ann/Sent/s1.eml";
};

TEST_F(ViewTest, SelectionFollowsTheRules) {
    using Step = std::function<void(AppStore&)>;
    auto query = [](std::string q) {
        return Step([q](AppStore& s) { s.setQuery(q); });
    };
    auto view = [](SidebarItem item) {
        return Step([item](AppStore& s) { s.setSidebar(item); });
    };
    struct Case {
        const char* name;
        std::optional<std::string> select;
        std::vector<Step> steps;
        std::vector<std::string> visible;
        std::optional<std::string> selected;
    };
    // clang-format off
    const std::vector<Case> cases = {
        {"typing filters the open message away and keeps it", a2, {query("zebra")}, {b1}, a2},
        {"typing to nothing keeps it too", a2,
         {query("zebra"), view(SidebarItem::ofAccount("Ann"))}, {}, a2},
        {"a view without the selection selects its first", a2,
         {view(SidebarItem::ofFolder("Ann", "Sent"))}, {s1}, s1},
        {"blanks alone are no query", a2, {query(" \t "), view(SidebarItem::ofAccount("Bob"))},
         {b1}, b1},
        {"a view that holds the selection keeps it", b1, {view(SidebarItem::ofAccount("Bob"))},
         {b1}, b1},
        {"with no selection a view selects nothing", std::nullopt,
         {view(SidebarItem::ofAccount("Bob"))}, {b1}, std::nullopt},
        {"clearing the query keeps order by date", a1, {query("zebra"), query("")},
         {a1, b1, a2, s1}, a1},
    };
    // clang-format on
    AppStore store;
    ASSERT_TRUE(scan(store));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        store.setQuery("");
        store.setSidebar(SidebarItem::everything());
        store.setSelectedPath(c.select);
        if (c.select) {
            ASSERT_TRUE(waitForOpen(store, *c.select));
        }
        for (const auto& step : c.steps) {
            step(store);
        }
        settle();
        EXPECT_EQ(paths(store.visible()), c.visible);
        EXPECT_EQ(store.selectedPath(), c.selected);
        if (c.selected) {
            ASSERT_TRUE(waitForOpen(store, *c.selected));
        } else {
            EXPECT_FALSE(store.openMessage());
        }
    }
}

TEST_F(ViewTest, ScrubLandsOnTheMonthOrTheNextOlder) {
    struct Case {
        MonthKey asked;
        MonthKey landed;
    };
    const Case cases[] = {
        {{2024, 5}, {2024, 5}},  // a month with mail
        {{2024, 4}, {2024, 3}},  // a gap: the next older month
        {{2030, 1}, {2024, 5}},  // newer than all mail: the newest
        {{1999, 7}, {2023, 12}}, // older than all mail: the oldest
    };
    AppStore store;
    ASSERT_TRUE(scan(store));
    ASSERT_EQ(store.groups().size(), 3u);
    int token = store.scrubToken();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.asked);
        store.scrub(c.asked);
        ASSERT_TRUE(store.timeline().scrubTarget());
        EXPECT_EQ(store.timeline().scrubTarget()->key, c.landed);
        EXPECT_EQ(store.timeline().scrubTarget()->token, ++token);
        EXPECT_EQ(store.timeline().currentMonth(), c.landed);
    }
    // Narrowing to a month still shown keeps it current; to one without it moves to the first.
    store.scrub({2024, 3});
    store.setQuery("zebra");
    EXPECT_EQ(store.timeline().currentMonth(), (MonthKey{2024, 3}));
    store.setQuery("gamma");
    EXPECT_EQ(store.timeline().currentMonth(), (MonthKey{2023, 12}));
}

TEST_F(ViewTest, SavedSearchesNarrowAndFallBack) {
    AppStore store;
    ASSERT_TRUE(scan(store));
    store.setQuery("  alpha ");
    store.saveCurrentSearch();
    ASSERT_EQ(store.savedSearches().size(), 1u);
    const auto saved = store.savedSearches()[0];
    EXPECT_EQ(saved.name, "Alpha");
    EXPECT_EQ(saved.query, "alpha");
    EXPECT_EQ(store.query(), "");
    EXPECT_EQ(store.sidebar(), SidebarItem::ofSaved(saved.id));
    EXPECT_EQ(store.sidebarTitle().toStdString(), "Alpha");
    EXPECT_EQ(paths(store.visible()), std::vector{a1});
    ASSERT_TRUE(store.toast());
    EXPECT_EQ(store.toast()->text.toStdString(), "Saved “Alpha” to the sidebar");

    // A typed query narrows by AND: "alpha zebra" matches nothing.
    store.setQuery("zebra");
    EXPECT_TRUE(store.visible().empty());

    // An empty saved query leaves the typed one alone; a gone search behaves as everything.
    qs::SavedSearch empty{qs::UUID::random(), "Empty", ""};
    store.setSavedSearches({saved, empty});
    store.setSidebar(SidebarItem::ofSaved(empty.id));
    EXPECT_EQ(paths(store.visible()), std::vector{b1});
    store.setQuery("");
    store.setSavedSearches({saved});
    store.refreshVisible();
    EXPECT_EQ(store.visible().size(), 4u);
    EXPECT_EQ(store.sidebarTitle().toStdString(), "Saved Search");

    store.setSidebar(SidebarItem::ofSaved(saved.id));
    store.removeSavedSearch(saved.id);
    EXPECT_EQ(store.sidebar(), SidebarItem::everything());
    EXPECT_TRUE(store.savedSearches().empty());
    EXPECT_EQ(store.sidebarTitle().toStdString(), "Everything");
}

TEST_F(ViewTest, SelectNextClampsAndStartsAtTheTop) {
    AppStore store;
    ASSERT_TRUE(scan(store));
    struct Step {
        int delta;
        std::string expected;
    };
    store.selectNext(-1); // no selection: the first message
    EXPECT_EQ(store.selectedPath(), a1);
    for (const auto& [delta, expected] :
         {Step{1, b1}, Step{5, s1}, Step{1, s1}, Step{-2, b1}, Step{-9, a1}}) {
        store.selectNext(delta);
        EXPECT_EQ(store.selectedPath(), expected) << delta;
    }
    ASSERT_TRUE(waitForOpen(store, a1));
}

TEST(GroupTest, KeepsMonthRunsAndSortsInterleavedMonths) {
    auto record = [](std::string path, int64_t date) {
        qs::MessageRecord r;
        r.path = std::move(path);
        r.date = qs::dateFromUnix(date);
        return std::make_shared<const qs::MessageRecord>(std::move(r));
    };
    const int64_t day = 86'400;
    const int64_t march = midMonth(2024, 3);
    const int64_t may = midMonth(2024, 5);
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, int64_t>> input;
        std::vector<std::pair<int, std::vector<std::string>>> expected; // month, paths
    };
    const Case cases[] = {
        {"one month in relevance order stays as given",
         {{"m1", march - 5 * day}, {"m2", march + 5 * day}, {"m3", march}},
         {{3, {"m1", "m2", "m3"}}}},
        {"contiguous months keep their order",
         {{"a", may}, {"b", march + day}, {"c", march}},
         {{5, {"a"}}, {3, {"b", "c"}}}},
        {"interleaved months are merged, newest month first, newest mail first",
         {{"m1", march - day}, {"y", may}, {"m2", march + day}, {"m3", march - day}},
         {{5, {"y"}}, {3, {"m2", "m1", "m3"}}}},
        {"nothing", {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<qs::RecordRef> input;
        for (const auto& [path, date] : c.input) {
            input.push_back(record(path, date));
        }
        auto groups = AppStore::group(input);
        ASSERT_EQ(groups.size(), c.expected.size());
        for (size_t g = 0; g < groups.size(); ++g) {
            EXPECT_EQ(groups[g].key, (MonthKey{2024, c.expected[g].first}));
            EXPECT_EQ(paths(groups[g].records), c.expected[g].second);
        }
    }
}

TEST_F(ScanTest, FoldersAccountsCountsAndSenders) {
    const char* folders[] = {"Sent", "Box 10", "INBOX", "Box 9", "archive", "inbox"};
    for (const char* folder : folders) {
        put(vault() / "Ann" / folder / "x.eml", message(folder, midMonth(2024, 1)));
    }
    const std::string verified = "Authentication-Results: mx.example.net; dmarc=pass\r\n";
    // bank.example seen verified twice; shop.example once; "Sam" writes from both.
    put(vault() / "Ann" / "INBOX" / "v1.eml",
        verified + message("v1", midMonth(2024, 2), "Sam <sam@mail.bank.example>"));
    put(vault() / "Ann" / "INBOX" / "v2.eml",
        verified + message("v2", midMonth(2024, 2), "Pat <pat@bank.example>"));
    put(vault() / "Ann" / "INBOX" / "v3.eml",
        verified + message("v3", midMonth(2024, 2), "Sam <sam@shop.example>"));
    put(vault() / "Ann" / "INBOX" / "v4.eml",
        message("v4", midMonth(2024, 2), "Lee <lee@other.example>"));

    AppStore store;
    qs::MailAccount account;
    account.id = qs::UUID::random();
    account.label = "Zed";
    account.username = "zed";
    account.server = {"imap.example.org", 993, false};
    store.addAccount(account, "secret");
    ASSERT_TRUE(scan(store));

    std::vector<std::string> order;
    for (const auto& summary : store.folders().at("Ann")) {
        order.push_back(summary.folder);
    }
    EXPECT_EQ(order,
              (std::vector<std::string>{"INBOX", "archive", "Box 9", "Box 10", "inbox", "Sent"}));
    EXPECT_EQ(store.count("Ann", "INBOX"), 5);
    EXPECT_EQ(store.count("Ann", "Box 9"), 1);
    EXPECT_EQ(store.count("Ann", "Nope"), 0);
    EXPECT_EQ(store.archiveAccounts(), (std::vector<std::string>{account.directoryName(), "Ann"}));
    EXPECT_EQ(store.knownDomains(), (std::set<std::string>{"bank.example"}));
    EXPECT_EQ(store.knownNames(), (std::map<std::string, std::string>{{"pat", "bank.example"}}));
}

} // namespace
