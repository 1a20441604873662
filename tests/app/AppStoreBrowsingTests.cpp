#include "model/ArchiveScan.h"
#include "model/CopyStatus.h"
#include "model/RecordCatalog.h"
#include "search/SearchCache.h"

#include "StoreTest.h"
#include "support/Corpus.h"
#include "support/FileIO.h"

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
    for (const auto& record : records)
        out.push_back(record->path);
    return out;
}

using ScanTest = qs::test::StoreTest;

// Only a clear change of modification time reads a file again; the search cache follows.
TEST_F(ScanTest, ReconcilesTheIndexAndTheCacheWithTheFiles) {
    size_t expected = 0;
    for (const auto& real : qs::test::corpusMessages())
        put(vault() / "Real" / "INBOX" / (std::to_string(expected++) + ".eml"), real.bytes);
    for (int i = 0; i < 2'300; ++i, ++expected) {
        put(vault() / "Gen" / ("Box " + std::to_string(i % 7)) / (std::to_string(i) + ".eml"),
            message("Generated " + std::to_string(i), midMonth(2000 + i % 25, 1 + i % 12)));
    }
    AppStore store;
    std::vector<size_t> published;
    QObject::connect(&store, &AppStore::recordsChanged,
                     [&] { published.push_back(store.records().size()); });
    QSignalSpy progress(&store, &AppStore::indexingChanged);
    ASSERT_TRUE(scan(store));
    EXPECT_EQ(store.records().size(), expected);
    EXPECT_FALSE(store.indexing());
    EXPECT_GE(progress.count(), static_cast<int>(expected / qs::ArchiveScan::publishEvery));
    ASSERT_GE(published.size(), 5u);
    EXPECT_LT(published.size(), expected / qs::ArchiveScan::publishEvery);
    EXPECT_EQ(published.front(), qs::ArchiveScan::publishEvery);
    for (size_t i = 1; i + 1 < published.size(); ++i)
        EXPECT_GE(published[i], published[i - 1] + published[i - 1] / 4) << i;
    EXPECT_EQ(published.back(), expected);
    EXPECT_TRUE(std::ranges::is_sorted(store.records(), std::ranges::greater{},
                                       [](const qs::RecordRef& r) { return r->date; }));
    const auto json = store.layout().indexURL();
    const auto cache = qs::SearchCache::beside(json);
    auto found = [&](const char* query) {
        auto opened = qs::SearchCache::open(cache, json);
        auto answer = opened ? opened->find(query, 1) : std::nullopt;
        return answer ? std::optional(answer->found) : std::nullopt;
    };
    EXPECT_GE(found("generated").value_or(0), 2'300u);
    auto second = qs::ArchiveScan::run(vault(), json, {});
    ASSERT_TRUE(second);
    EXPECT_EQ(second->filesRead, 0u);
    EXPECT_FALSE(second->changed);
    const std::string touched = "Gen/Box 1/1.eml", nudged = "Gen/Box 2/2.eml";
    const std::string deleted = "Gen/Box 3/3.eml";
    for (const auto& [path, shift] : {std::pair{touched, 1.5}, std::pair{nudged, 0.5}}) {
        const double before = store.index().record(path)->mtime;
        put(vault() / path, message("Rewritten xyzzy", midMonth(2001, 2)));
        qs::test::setModificationTime(vault() / path, before + shift);
    }
    fs::remove(vault() / deleted);
    const auto indexWritten = fs::last_write_time(json);
    auto third = qs::ArchiveScan::run(vault(), json, {});
    ASSERT_TRUE(third);
    EXPECT_EQ(third->filesRead, 1u);
    EXPECT_EQ(third->index.record(touched)->subject, "Rewritten xyzzy");
    EXPECT_EQ(third->index.record(nudged)->subject, "Generated 2");
    EXPECT_EQ(third->index.record(deleted), nullptr);
    EXPECT_NE(fs::last_write_time(json), indexWritten);
    EXPECT_EQ(found("xyzzy"), 1u);
    fs::remove(cache);
    ASSERT_FALSE(qs::ArchiveScan::run(vault(), json, {})->changed);
    EXPECT_EQ(found("xyzzy"), 1u) << "a missing cache is written again";
    ASSERT_TRUE(scan(store));
    EXPECT_EQ(store.records().size(), expected - 1);
    EXPECT_EQ(std::ranges::count(paths(store.records()), deleted), 0);

    // A folder in the index file's place: the save fails, and the cache is never stamped.
    fs::remove(cache);
    fs::remove(json);
    fs::create_directories(json / "in-the-way");
    ASSERT_TRUE(qs::ArchiveScan::run(vault(), json, {}));
    EXPECT_FALSE(fs::exists(cache));
}

// A link to a folder is not entered, so mail is never listed twice.
TEST_F(ScanTest, WalkTakesMessagesOnly) {
    for (const char* path :
         {"A/INBOX/1.eml", "A/INBOX/CAPS.EML", "A/INBOX/notes.txt", "A/.hidden/h.eml",
          ".quernstead/stray.eml", "A/Locked/2.eml", "elsewhere.eml"})
        put(vault() / path, message(path, midMonth(2020, 1)));
    qs::test::setModificationTime(vault() / "A" / "INBOX" / "1.eml", 1'600'000'000.25);
    fs::create_symlink(vault() / "elsewhere.eml", vault() / "A" / "INBOX" / "link.eml");
    fs::create_symlink(vault() / "A" / "INBOX", vault() / "A" / "Mirror");
    fs::create_symlink(vault() / "gone.eml", vault() / "A" / "INBOX" / "dangling.eml");
    fs::permissions(vault() / "A" / "Locked", fs::perms::none);
    const bool locked = ::access((vault() / "A" / "Locked").c_str(), R_OK) != 0;
    auto files = qs::ArchiveScan::walk(vault());
    fs::permissions(vault() / "A" / "Locked", fs::perms::owner_all);
    std::vector<std::string> expected{"A/INBOX/1.eml", "A/INBOX/CAPS.EML", "A/INBOX/link.eml",
                                      "elsewhere.eml"};
    if (!locked) // running as root: permissions don't stop the walk
        expected.insert(expected.begin() + 3, "A/Locked/2.eml");
    std::vector<std::string> found;
    for (const auto& [path, mtime] : files)
        found.push_back(path);
    EXPECT_EQ(found, expected);
    EXPECT_DOUBLE_EQ(files["A/INBOX/1.eml"], 1'600'000'000.25);
}

// The big message is opened first, so its parse is the most likely to finish last.
TEST_F(ScanTest, SelectionOpeningScrubAndSavedSearchesFollowTheList) {
    const std::string a1 = "Ann/INBOX/a1.eml", a2 = "Ann/INBOX/a2.eml", b1 = "Bob/INBOX/b1.eml";
    const std::string s1 = "Ann/Sent/s1.eml", big = "Ann/INBOX/big.eml";
    put(vault() / a1, message("Alpha report", midMonth(2024, 5)));
    put(vault() / a2, message("Beta notes", midMonth(2024, 3)));
    put(vault() / b1, message("Delta zebra", midMonth(2024, 3) + 3'600, "Bo <bo@example.com>"));
    put(vault() / s1, message("Gamma plan", midMonth(2023, 12)));
    std::string html = "<html><body>";
    while (html.size() < 4'000'000)
        html += "<p>Lots of <a href=\"https://tracker.example/x\">words</a> here</p>\n";
    put(vault() / big, "From: A <a@example.org>\r\nSubject: Big\r\nDate: Mon, 15 Jan 2024 10:00:00 "
                       "+0000\r\nContent-Type: text/html\r\n\r\n" +
                           html);
    const auto ann = SidebarItem::ofAccount("Ann"), bob = SidebarItem::ofAccount("Bob");
    // clang-format off
    const struct {
        const char* name;
        std::optional<std::string> select;
        std::vector<std::string> queries; // typed in turn, then the view shown
        std::optional<SidebarItem> view;
        std::vector<std::string> visible;
        std::optional<std::string> selected;
    } cases[] = {
        {"typing filters the open message away and keeps it", a2, {"zebra"}, {}, {b1}, a2},
        {"typing to nothing keeps it too", a2, {"zebra"}, ann, {}, a2},
        {"a view without the selection selects its first", a2, {}, SidebarItem::ofFolder("Ann", "Sent"), {s1}, s1},
        {"blanks alone are no query", a2, {" \t "}, bob, {b1}, b1},
        {"a view that holds the selection keeps it", b1, {}, bob, {b1}, b1},
        {"with no selection a view selects nothing", std::nullopt, {}, bob, {b1}, std::nullopt},
        {"clearing the query keeps order by date", a1, {"zebra", ""}, {}, {a1, b1, a2, big, s1}, a1},
    };
    // clang-format on
    AppStore store;
    ASSERT_TRUE(scan(store));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        store.setQuery("");
        store.setSidebar(SidebarItem::everything());
        store.setSelectedPath(c.select);
        ASSERT_TRUE(!c.select || waitForOpen(store, *c.select));
        for (const auto& query : c.queries)
            store.setQuery(query);
        if (c.view)
            store.setSidebar(*c.view);
        settle();
        EXPECT_EQ(paths(store.visible()), c.visible);
        EXPECT_EQ(store.selectedPath(), c.selected);
        EXPECT_TRUE(c.selected ? waitForOpen(store, *c.selected) : !store.openMessage());
    }

    // Narrowing to a month still shown keeps it current; to one without, it moves to the first.
    store.setQuery("");
    store.setSidebar(SidebarItem::everything());
    int token = store.scrubToken();
    for (auto [asked, landed] : {std::pair<MonthKey, MonthKey>{{2030, 1}, {2024, 5}},
                                 std::pair<MonthKey, MonthKey>{{1999, 7}, {2023, 12}}}) {
        store.scrub(asked);
        ASSERT_TRUE(store.timeline().scrubTarget());
        EXPECT_EQ(store.timeline().scrubTarget()->key, landed);
        EXPECT_EQ(store.timeline().scrubTarget()->token, ++token);
        EXPECT_EQ(store.timeline().currentMonth(), landed);
    }
    store.scrub({2024, 3});
    store.setQuery("zebra");
    EXPECT_EQ(store.timeline().currentMonth(), (MonthKey{2024, 3}));
    store.setQuery("gamma");
    EXPECT_EQ(store.timeline().currentMonth(), (MonthKey{2023, 12}));
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
    store.setQuery("zebra");
    EXPECT_TRUE(store.visible().empty()) << "the query narrows the saved search";
    store.setQuery("");
    store.setSidebar(SidebarItem::ofSaved(qs::UUID::random())); // one since removed
    EXPECT_EQ(store.visible().size(), 5u);
    EXPECT_EQ(store.sidebarTitle().toStdString(), "Saved Search");
    store.setSidebar(SidebarItem::ofSaved(saved.id));
    store.removeSavedSearch(saved.id);
    EXPECT_EQ(store.sidebar(), SidebarItem::everything());
    EXPECT_TRUE(store.savedSearches().empty());
    EXPECT_EQ(store.sidebarTitle().toStdString(), "Everything");
    for (const std::string& path : {big, a2, s1})
        store.setSelectedPath(path);
    ASSERT_TRUE(waitForOpen(store, s1));
    settle();
    EXPECT_EQ(store.openMessage()->record.path, s1);
    EXPECT_EQ(store.openMessage()->copy.kind, qs::CopyStatus::Kind::saved);
    fs::remove(vault() / a2); // a missing file keeps the previous message open
    store.setSelectedPath(a2);
    settle();
    EXPECT_EQ(store.selectedPath(), a2);
    ASSERT_TRUE(store.openMessage());
    EXPECT_EQ(store.openMessage()->record.path, s1);
    store.setSelectedPath(std::nullopt);
    EXPECT_FALSE(store.openMessage());
    store.setSelectedPath(std::string("Ann/INBOX/not-in-records.eml"));
    EXPECT_FALSE(store.openMessage());
}

// In a list of everything (the catalog's own, which knows each place) and in a folder's list.
TEST_F(ScanTest, SelectNextMovesThroughTheShownListAndStopsAtItsEnds) {
    for (int i = 0; i < 4; ++i)
        put(vault() / "Ann" / "INBOX" / (std::to_string(i) + ".eml"),
            message("M" + std::to_string(i), midMonth(2024, 1 + i)));
    put(vault() / "Ann" / "Sent" / "s.eml", message("S", midMonth(2024, 6)));
    AppStore store;
    ASSERT_TRUE(scan(store));
    for (const auto& sidebar : {SidebarItem::everything(), SidebarItem::ofFolder("Ann", "INBOX")}) {
        store.setSidebar(sidebar);
        const auto shown = paths(store.visible());
        ASSERT_EQ(shown.size(), sidebar.kind == SidebarItem::Kind::all ? 5u : 4u);
        store.setSelectedPath(std::nullopt);
        store.selectNext(-1);
        EXPECT_EQ(store.selectedPath(), shown.front()) << "no selection lands on the first";
        store.selectNext(1);
        EXPECT_EQ(store.selectedPath(), shown[1]);
        store.selectNext(10);
        EXPECT_EQ(store.selectedPath(), shown.back());
        store.selectNext(1);
        EXPECT_EQ(store.selectedPath(), shown.back()) << "the end holds";
        store.selectNext(-1);
        EXPECT_EQ(store.selectedPath(), shown[shown.size() - 2]);
        // The list's row of the selection shows it.
        auto& list = store.messageListModel();
        EXPECT_EQ(list.data(list.index(store.selectedRow()), qs::MessageListModel::PathRole),
                  QString::fromStdString(*store.selectedPath()));
    }
}

TEST_F(ScanTest, FoldersAccountsCountsAndSenders) {
    const char* folders[] = {"Sent", "Box 10", "INBOX", "Box 9", "archive", "inbox"};
    for (const char* folder : folders)
        put(vault() / "Ann" / folder / "x.eml", message(folder, midMonth(2024, 1)));
    const std::string verified = "Authentication-Results: mx.example.net; dmarc=pass\r\n";
    const std::pair<const char*, bool> senders[] = {{"Sam <sam@mail.bank.example>", true},
                                                    {"Pat <pat@bank.example>", true},
                                                    {"Sam <sam@shop.example>", true},
                                                    {"Lee <lee@other.example>", false}};
    int n = 0;
    for (const auto& [from, pass] : senders) {
        put(vault() / "Ann" / "INBOX" / ("v" + std::to_string(++n) + ".eml"),
            (pass ? verified : "") + message(from, midMonth(2024, 2), from));
    }
    AppStore store;
    const auto account = qs::test::account("Zed", "zed");
    store.addAccount(account, "secret");
    ASSERT_TRUE(scan(store));
    std::vector<std::string> order;
    for (const auto& summary : store.folders().at("Ann"))
        order.push_back(summary.folder);
    EXPECT_EQ(order,
              (std::vector<std::string>{"INBOX", "archive", "Box 9", "Box 10", "inbox", "Sent"}));
    EXPECT_EQ(store.count("Ann", "INBOX"), 5);
    EXPECT_EQ(store.count("Ann", "Nope"), 0);
    EXPECT_EQ(store.archiveAccounts(), (std::vector<std::string>{account.directoryName(), "Ann"}));
    EXPECT_EQ(store.knownDomains(), (std::set<std::string>{"bank.example"}));
    EXPECT_EQ(store.knownNames(), (std::map<std::string, std::string>{{"pat", "bank.example"}}));
}

// Large enough that the records are counted in two halves on two threads: each fact below
// has a share in both halves, so a half lost or counted twice in the merge shows.
TEST(RecordCatalogTest, ALargeVaultCountsEveryRecordOnce) {
    const int n = 120'000;
    std::vector<qs::MessageRecord> records(n);
    for (int i = 0; i < n; ++i) {
        auto& r = records[size_t(i)];
        r.id = i;
        r.account = "A" + std::to_string(i % 2);
        r.folder = "F" + std::to_string(i % 3);
        r.path = r.account + "/" + r.folder + "/" + std::to_string(i) + ".eml";
        r.date = qs::dateFromUnix(1'600'000'000 + (i / 2) * 60); // pairs share a date
        r.size = 2;
        r.attachments = i % 4 == 0 ? 1 : 0;
        if (i == 10 || i == n - 10) {
            r.trust = qs::SenderTrust::verified;
            r.fromName = i == 10 ? "Shop" : "SHOP";
            r.fromEmail = "orders@mail.shop.example";
        }
    }
    const auto catalog = qs::RecordCatalog::build(records);
    EXPECT_EQ(catalog.records.size(), size_t(n));
    EXPECT_EQ(catalog.totalBytes, 2 * n);
    EXPECT_EQ(catalog.smartCounts.at(qs::SmartFilter::attachments), n / 4);
    EXPECT_EQ(catalog.accounts, (std::vector<std::string>{"A0", "A1"}));
    for (const auto& [account, summaries] : catalog.folders) {
        ASSERT_EQ(summaries.size(), 3u) << account;
        for (const auto& summary : summaries)
            EXPECT_EQ(summary.count, n / 6) << account << "/" << summary.folder;
    }
    EXPECT_EQ(catalog.knownDomains, (std::set<std::string>{"shop.example"}));
    EXPECT_EQ(catalog.knownNames, (std::map<std::string, std::string>{{"shop", "shop.example"}}));
    // Newest first; of a pair sharing a date, the earlier slot first.
    EXPECT_EQ(catalog.records[0]->id, n - 2);
    EXPECT_EQ(catalog.records[1]->id, n - 1);
    EXPECT_EQ(catalog.monthStarts.front().second, 0u);
    for (int id : {0, n / 2 - 1, n / 2, n - 1}) {
        const auto& path = records[size_t(id)].path;
        ASSERT_TRUE(catalog.byPath(path)) << path;
        EXPECT_EQ((*catalog.byPath(path))->id, id);
        ASSERT_TRUE(catalog.atSlot(id));
        EXPECT_EQ((*catalog.atSlot(id))->path, path);
    }
}

using qs::CopyStatus;

TEST(CopyStatusTest, JudgesByServerSizeLengthAndValidity) {
    const std::string mail = message("Hello", midMonth(2024, 1));
    const auto n = static_cast<int64_t>(mail.size());
    // clang-format off
    const struct {
        const char* name;
        std::string data;
        std::string account;
        std::optional<int64_t> server;
        CopyStatus expected;
    } cases[] = {
        {"no size, imported", mail, "Imported", std::nullopt, {CopyStatus::Kind::imported, 0, 0}},
        {"no size, other account", mail, "Ann", std::nullopt, {CopyStatus::Kind::saved, 0, 0}},
        {"same length and valid", mail, "Imported", n, {CopyStatus::Kind::verified, n, 0}},
        {"longer on the server", mail, "Ann", n + 1, {CopyStatus::Kind::differs, n + 1, n}},
        {"right length, not an email", std::string(size_t(n), 'x'), "Ann", n,
         {CopyStatus::Kind::differs, n, n}},
        {"empty file, size 0", "", "Ann", 0, {CopyStatus::Kind::differs, 0, 0}},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        qs::MessageRecord record;
        record.account = c.account;
        EXPECT_EQ(CopyStatus::judge(c.data, record, c.server), c.expected);
    }
    const std::pair<CopyStatus, const char*> texts[] = {
        {{CopyStatus::Kind::verified, 512, 0},
         "The file holds exactly the 512 bytes your server sent, and reads as a complete email."},
        {{CopyStatus::Kind::differs, 700, 512},
         "The file is 512 bytes but the server sent 700. Run a backup to fetch it again."},
        {{CopyStatus::Kind::imported, 0, 0}, "Imported from an .eml or .mbox file."},
        {{CopyStatus::Kind::saved, 0, 0},
         "Saved before Quernstead recorded server sizes; it will "
         "be verified after the next backup."},
    };
    for (const auto& [status, help] : texts)
        EXPECT_EQ(status.helpText().toStdString(), help);
}

} // namespace
