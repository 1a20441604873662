#include "CleanupWorld.h"
#include "imap/IMAPDate.h"

#include <gtest/gtest.h>

namespace {

using namespace qs;
using Status = CleanupItem::Status;
using test::CleanupWorld;
using Strings = std::vector<std::string>;

TEST(CleanerSurvey, PairsEachOldMessageWithItsProvenCopy) {
    CleanupWorld world(false);
    auto add = [&](int n, int64_t date = CleanupWorld::oldDate, bool filed = true,
                   bool recorded = true) {
        return world.add(CleanupWorld::message(n), date, filed, recorded);
    };
    const int64_t old = CleanupWorld::oldDate;
    uint32_t recorded = add(1), markedInside = add(2), byName = add(3, old, true, false);
    uint32_t neverFiled = add(4, old, false), short1 = add(5);
    add(6, CleanupWorld::newDate);
    uint32_t markedOutside = add(7, CleanupWorld::newDate);
    // The state's word counts, not the UID in the name.
    uint32_t renamed = add(8);
    std::filesystem::rename(world.layout.url(world.pathOf(renamed)),
                            world.layout.url("Test/INBOX/Renamed.eml"));
    world.folder.files[std::to_string(renamed)] = "Test/INBOX/Renamed.eml";
    world.saveSync();
    std::filesystem::resize_file(world.layout.url(world.pathOf(short1)),
                                 CleanupWorld::message(5).size() - 1);
    world.mailbox.edit("INBOX", [&](test::FakeMailbox::Folder& folder) {
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

    EXPECT_EQ(world.sent("EXAMINE"), Strings{"EXAMINE \"INBOX\""});
    EXPECT_EQ(world.sent("UID SEARCH"),
              (Strings{"UID SEARCH BEFORE " +
                           IMAPDate::searchString(dateFromUnix(CleanupWorld::limitDate)),
                       "UID SEARCH DELETED"}));
    EXPECT_EQ(world.sent("UID FETCH"),
              Strings{"UID FETCH 1:5,8 (UID RFC822.SIZE INTERNALDATE FLAGS)"});
    EXPECT_TRUE(world.sent("UID STORE").empty());
}

// Renumbered, neither the recorded UIDs nor the UIDs in the names prove anything.
TEST(CleanerSurvey, CopiesCountOnlyUnderTheSameUIDValidity) {
    for (uint32_t validity : {1u, 2u}) {
        CleanupWorld world(true);
        world.addMany(3);
        world.folder.uidValidity = validity;
        world.saveSync();
        CleanupPlan plan = world.plan();
        ASSERT_EQ(plan.items.size(), 3u);
        for (const CleanupItem& item : plan.items) {
            EXPECT_EQ(item.status, validity == 1 ? Status::verified() : Status::notBackedUp())
                << item;
        }
    }
}

// Only a key that is the UID in plain decimal names a message (the copies' names carry none).
TEST(CleanerSurvey, StateKeysCountOnlyAsWholeDecimalUIDs) {
    CleanupWorld world(true);
    const std::string keys[] = {"1", "2x", " 3", "+4", "5 ", "-6", ""};
    for (int n = 0; n < std::ssize(keys); ++n) {
        uint32_t uid = world.add(CleanupWorld::message(n), CleanupWorld::oldDate, false);
        std::string path = "Test/INBOX/Copy of " + std::to_string(uid) + "a.eml";
        std::filesystem::create_directories(world.layout.url(path).parent_path());
        std::ofstream(world.layout.url(path), std::ios::binary) << CleanupWorld::message(n);
        world.folder.files[keys[n]] = path;
    }
    world.saveSync();
    CleanupPlan plan = world.plan();
    ASSERT_EQ(plan.items.size(), std::size(keys));
    for (size_t i = 0; i < plan.items.size(); ++i) {
        EXPECT_EQ(plan.items[i].status == Status::verified(), i == 0) << '"' << keys[i] << '"';
        EXPECT_EQ(plan.items[i].localPath.has_value(), i == 0) << '"' << keys[i] << '"';
    }
}

// Slice edges are where a message gets lost or fetched twice.
TEST(CleanerSurvey, MetadataGoesInSlicesOf500AndNotAtAllForNothing) {
    CleanupWorld world(true), empty(true);
    for (int i = 0; i < 1001; ++i) {
        world.mailbox.add("INBOX", "Subject: s\r\n\r\nx\r\n");
    }
    for (auto* each : {&world, &empty}) {
        each->mailbox.add("INBOX", "Subject: s\r\n\r\nx\r\n", {}, CleanupWorld::newDate);
    }
    CleanupPlan plan = world.cleaner().survey("INBOX", dateFromUnix(CleanupWorld::limitDate));
    EXPECT_EQ(plan.pending(), 1001);
    EXPECT_EQ(plan.items.back().uid, 1001u);
    const std::string meta = " (UID RFC822.SIZE INTERNALDATE FLAGS)";
    EXPECT_EQ(
        world.sent("UID FETCH"),
        (Strings{"UID FETCH 1:500" + meta, "UID FETCH 501:1000" + meta, "UID FETCH 1001" + meta}));
    EXPECT_TRUE(empty.plan().items.empty());
    EXPECT_TRUE(empty.sent("UID FETCH").empty());
}

} // namespace
