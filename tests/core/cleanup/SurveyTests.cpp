#include "CleanupWorld.h"
#include "imap/IMAPDate.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

using namespace qs;
using Status = CleanupItem::Status;
using test::CleanupWorld;
using test::FakeMailbox;

TEST(CleanerSurvey, PairsEachOldMessageWithItsProvenCopy) {
    CleanupWorld world(false);
    uint32_t recorded = world.add(CleanupWorld::message(1));
    uint32_t markedInside = world.add(CleanupWorld::message(2));
    uint32_t byName = world.add(CleanupWorld::message(3), CleanupWorld::oldDate, true, false);
    uint32_t neverFiled = world.add(CleanupWorld::message(4), CleanupWorld::oldDate, false);
    uint32_t short1 = world.add(CleanupWorld::message(5));
    world.add(CleanupWorld::message(6), CleanupWorld::newDate);
    uint32_t markedOutside = world.add(CleanupWorld::message(7), CleanupWorld::newDate);
    // The state's word counts, not the UID in the name.
    uint32_t renamed = world.add(CleanupWorld::message(8));
    std::filesystem::rename(world.layout.url(world.pathOf(renamed)),
                            world.layout.url("Test/INBOX/Renamed.eml"));
    world.folder.files[std::to_string(renamed)] = "Test/INBOX/Renamed.eml";
    world.saveSync();
    std::filesystem::resize_file(world.layout.url(world.pathOf(short1)),
                                 CleanupWorld::message(5).size() - 1);
    world.mailbox.edit("INBOX", [&](FakeMailbox::Folder& folder) {
        folder.messages[markedInside - 1].flags.push_back("\\Deleted");
        folder.messages[markedOutside - 1].flags.push_back("\\Deleted");
    });

    CleanupPlan plan = world.plan();
    auto size = [](int n) {
        return static_cast<int64_t>(CleanupWorld::message(n).size());
    };
    auto item = [&](uint32_t uid, int n, std::optional<std::string> path, Status status) {
        return CleanupItem{uid, size(n), dateFromUnix(CleanupWorld::oldDate), path, status};
    };
    EXPECT_EQ(plan.items,
              (std::vector<CleanupItem>{
                  item(recorded, 1, world.pathOf(recorded), Status::verified()),
                  item(markedInside, 2, world.pathOf(markedInside), Status::verified()),
                  item(byName, 3, world.pathOf(byName), Status::verified()),
                  item(neverFiled, 4, std::nullopt, Status::notBackedUp()),
                  item(short1, 5, world.pathOf(short1), Status::sizeMismatch(size(5) - 1, size(5))),
                  item(renamed, 8, "Test/INBOX/Renamed.eml", Status::verified())}));
    EXPECT_EQ(plan.displayName, "Inbox");
    EXPECT_EQ(plan.otherDeletedOnServer, 1) << "only the mark outside the selection counts";
    EXPECT_FALSE(plan.serverSupportsUIDPlus);

    EXPECT_EQ(world.sent("EXAMINE"), std::vector<std::string>{"EXAMINE \"INBOX\""});
    EXPECT_EQ(world.sent("UID SEARCH"),
              (std::vector<std::string>{"UID SEARCH BEFORE " + IMAPDate::searchString(dateFromUnix(
                                                                   CleanupWorld::limitDate)),
                                        "UID SEARCH DELETED"}));
    EXPECT_EQ(world.sent("UID FETCH"),
              std::vector<std::string>{"UID FETCH 1:5,8 (UID RFC822.SIZE INTERNALDATE FLAGS)"});
    EXPECT_EQ(world.sent("UID STORE"), std::vector<std::string>{});
}

TEST(CleanerSurvey, CopiesCountOnlyUnderTheSameUIDValidity) {
    struct Row {
        const char* name;
        uint32_t stateValidity;
        bool breakStateFile;
        Status expected;
    };
    const Row rows[] = {
        {"same numbering", 1, false, Status::verified()},
        {"renumbered: names don't help either", 2, false, Status::notBackedUp()},
        {"damaged sync file", 1, true, Status::notBackedUp()},
    };
    for (const Row& row : rows) {
        CleanupWorld world(true);
        world.addMany(3);
        world.folder.uidValidity = row.stateValidity;
        world.saveSync();
        if (row.breakStateFile) {
            std::ofstream(world.layout.syncURL(world.account)) << "{\"folders\": 7";
        }
        CleanupPlan plan = world.plan();
        ASSERT_EQ(plan.items.size(), 3u) << row.name;
        for (const CleanupItem& item : plan.items) {
            EXPECT_EQ(item.status, row.expected) << row.name << ": " << item;
        }
    }
}

// Only a key that is the UID in plain decimal names a message (the copies' names carry none).
TEST(CleanerSurvey, StateKeysCountOnlyAsWholeDecimalUIDs) {
    CleanupWorld world(true);
    const std::string keys[] = {"1", "2x", " 3", "+4", "5 ", "-6", ""};
    std::vector<bool> found;
    for (const std::string& key : keys) {
        uint32_t uid = world.add(CleanupWorld::message(static_cast<int>(found.size())),
                                 CleanupWorld::oldDate, false);
        std::string path = "Test/INBOX/Copy of " + std::to_string(uid) + "a.eml";
        std::filesystem::create_directories(world.layout.url(path).parent_path());
        std::ofstream(world.layout.url(path), std::ios::binary)
            << CleanupWorld::message(static_cast<int>(found.size()));
        world.folder.files[key] = path;
        found.push_back(key == "1");
    }
    world.saveSync();
    CleanupPlan plan = world.plan();
    ASSERT_EQ(plan.items.size(), found.size());
    for (size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(plan.items[i].status == Status::verified(), found[i]) << '"' << keys[i] << '"';
        EXPECT_EQ(plan.items[i].localPath.has_value(), found[i]) << '"' << keys[i] << '"';
    }
}

// Slice edges are where a message gets lost or fetched twice.
TEST(CleanerSurvey, MetadataGoesInSlicesOf500AndNotAtAllForNothing) {
    CleanupWorld world(true);
    for (int i = 0; i < 1001; ++i) {
        world.mailbox.add("INBOX", "Subject: s\r\n\r\nx\r\n");
    }
    world.mailbox.add("INBOX", "Subject: s\r\n\r\nx\r\n", {}, CleanupWorld::newDate);
    CleanupPlan plan = world.cleaner().survey("INBOX", dateFromUnix(CleanupWorld::limitDate));
    EXPECT_EQ(plan.pending(), 1001);
    EXPECT_EQ(plan.items.back().uid, 1001u);
    EXPECT_EQ(world.sent("UID FETCH"),
              (std::vector<std::string>{"UID FETCH 1:500 (UID RFC822.SIZE INTERNALDATE FLAGS)",
                                        "UID FETCH 501:1000 (UID RFC822.SIZE INTERNALDATE FLAGS)",
                                        "UID FETCH 1001 (UID RFC822.SIZE INTERNALDATE FLAGS)"}));
    CleanupWorld empty(true);
    empty.mailbox.add("INBOX", "Subject: s\r\n\r\nx\r\n", {}, CleanupWorld::newDate);
    EXPECT_TRUE(empty.plan().items.empty());
    EXPECT_TRUE(empty.sent("UID FETCH").empty());
}

} // namespace
