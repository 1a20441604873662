#include "CleanupWorld.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

using namespace qs;
using test::CleanupWorld;
using test::FakeIMAPCommand;
using test::FakeIMAPConnection;
using test::FakeMailbox;

struct Released {
    explicit Released(bool uidplus) : world(uidplus) {
        world.addMany(450);
        outside = world.add(CleanupWorld::message(999), CleanupWorld::newDate);
        world.saveSync();
        plan = world.plan();
    }

    std::optional<CleanupError> run() {
        try {
            returned = world.cleaner(200).execute(
                plan, [&](int64_t done, int64_t total) { progress.emplace_back(done, total); },
                stop.get_token());
        } catch (const CleanupError& error) {
            return error;
        }
        return std::nullopt;
    }

    void markOutside() {
        world.mailbox.edit("INBOX", [&](FakeMailbox::Folder& folder) {
            folder.messages.back().flags.push_back("\\Deleted");
        });
    }

    CleanupWorld world;
    uint32_t outside = 0;
    CleanupPlan plan;
    std::stop_source stop;
    int expunges = 0;
    int64_t returned = -1;
    std::vector<std::pair<int64_t, int64_t>> progress;
};

// With UIDPLUS another client's mark is no obstacle, and the marked message stays.
TEST(CleanerExecute, ReleasesEveryProvenMessageChunkByChunk) {
    using Strings = std::vector<std::string>;
    for (bool uidplus : {true, false}) {
        Released release(uidplus);
        const CleanupWorld& world = release.world;
        if (uidplus) {
            release.markOutside();
        }
        ASSERT_EQ(release.plan.verified().size(), 450u);
        EXPECT_EQ(release.run(), std::nullopt);
        EXPECT_EQ(release.returned, 450);
        EXPECT_EQ(world.onServer(), std::vector<uint32_t>{release.outside});
        EXPECT_EQ(release.progress, (std::vector<std::pair<int64_t, int64_t>>{
                                        {0, 450}, {200, 450}, {400, 450}, {450, 450}}));
        EXPECT_EQ(world.sent("SELECT"), Strings{"SELECT \"INBOX\""});
        const std::string ranges[] = {"1:200", "201:400", "401:450"};
        Strings stores, expunges;
        for (const auto& range : ranges) {
            stores.push_back("UID STORE " + range + " +FLAGS.SILENT (\\Deleted)");
            expunges.push_back("UID EXPUNGE " + range);
        }
        EXPECT_EQ(world.sent("UID STORE"), stores);
        EXPECT_EQ(world.sent("UID EXPUNGE"), uidplus ? expunges : Strings{});
        EXPECT_EQ(world.sent("EXPUNGE").size(), uidplus ? 0u : 3u);
        // Without UIDPLUS: the survey's, one before the run and one before each chunk.
        EXPECT_EQ(world.sent("UID SEARCH DELETED").size(), uidplus ? 1u : 1u + 1u + 3u);
        EXPECT_EQ(world.sent("LOGOUT").size(), 2u) << "survey and release";
    }
}

TEST(CleanerExecute, EveryEarlyEndCountsExactly) {
    using Hook = std::function<bool(Released&, FakeIMAPConnection&, const FakeIMAPCommand&)>;
    struct Row {
        const char* name;
        bool uidplus;
        bool markBefore; // another client's mark; the plan says UIDPLUS: the session counts
        bool stopBefore;
        Hook hook;
        CleanupError error;
        size_t left;
        size_t reports;
    };
    const auto otherMark = CleanupError::otherDeletedMessages(1);
    // clang-format off
    const Row rows[] = {
        {"a mark before, without UIDPLUS", false, true, false, {}, otherMark, 451, 0},
        {"a mark between chunks, without UIDPLUS", false, false, false,
         [](Released& release, auto&, const FakeIMAPCommand& command) {
             if (command.name == "UID SEARCH" && release.expunges == 1) {
                 release.markOutside();
             }
             return false;
         },
         CleanupError::stopped(200, 450, otherMark.description()), 251, 2},
        {"an EXPUNGE refused: its chunk is unmarked", false, false, false,
         [](Released& release, FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
             if (command.name == "EXPUNGE" && release.expunges == 3) {
                 connection.send(command.tag + " NO quota database locked");
                 return true;
             }
             return false;
         },
         CleanupError::stopped(400, 450, "EXPUNGE failed (NO): quota database locked"), 51, 3},
        {"a stop during a chunk, which is completed", true, false, false,
         [](Released& release, auto&, const FakeIMAPCommand& command) {
             if (command.name == "UID STORE") {
                 release.stop.request_stop();
             }
             return false;
         },
         CleanupError::stopped(200, 450), 251, 2},
        {"a stop before anything", true, false, true, {}, CleanupError::stopped(0, 450), 451, 1},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Released release(row.uidplus);
        if (row.markBefore) {
            release.markOutside();
            release.plan.serverSupportsUIDPlus = true;
        }
        if (row.stopBefore) {
            release.stop.request_stop();
        }
        release.world.mailbox.intercept = [&](FakeIMAPConnection& connection,
                                              const FakeIMAPCommand& command) {
            release.expunges += command.name == "EXPUNGE" ? 1 : 0;
            return row.hook && row.hook(release, connection, command);
        };
        EXPECT_EQ(release.run(), row.error);
        EXPECT_EQ(release.world.onServer().size(), row.left);
        EXPECT_EQ(release.progress.size(), row.reports);
        for (uint32_t marked : release.world.markedOnServer()) {
            EXPECT_EQ(marked, release.outside);
        }
    }
}

TEST(CleanerExecute, WhatChangedSinceTheSurveyStays) {
    using Change = std::function<void(CleanupWorld&, CleanupPlan&)>;
    auto onServer = [](std::function<void(FakeMailbox::Folder&)> change) -> Change {
        return [=](CleanupWorld& world, CleanupPlan&) {
            world.mailbox.edit("INBOX", change);
        };
    };
    struct Row {
        const char* name;
        Change change;
        std::optional<CleanupError> error;
        std::vector<uint32_t> staying;
        bool connects;
    };
    const std::vector<uint32_t> all{1, 2, 3, 4, 5, 6, 7, 8};
    namespace fs = std::filesystem;
    const auto nothing = CleanupError::nothingVerified();
    // clang-format off
    const Row rows[] = {
        {"size changed on the server",
         onServer([](auto& f) { f.messages[5].reportedSize = 1; }), {}, {6}, true},
        {"message gone from the server",
         onServer([](auto& f) { f.messages.erase(f.messages.begin() + 1); }), {}, {}, true},
        {"folder renumbered", onServer([](auto& f) { f.uidValidity = 9; }),
         CleanupError::uidValidityChanged(), all, true},
        {"every file deleted",
         [](auto& world, auto&) { fs::remove_all(world.layout.url(world.folderDirectory)); },
         nothing, all, false},
    };
    // clang-format on
    for (const Row& row : rows) {
        for (bool uidplus : {true, false}) {
            SCOPED_TRACE(std::string(row.name) + (uidplus ? " UIDPLUS" : ""));
            CleanupWorld world(uidplus);
            world.addMany(8);
            world.saveSync();
            CleanupPlan plan = world.plan();
            ASSERT_EQ(plan.verified().size(), 8u);
            row.change(world, plan);
            int connections = world.server->connectionCount();
            const auto expectedTotal = static_cast<int64_t>(world.onServer().size()) -
                                       static_cast<int64_t>(row.staying.size());
            std::vector<std::pair<int64_t, int64_t>> progress;
            try {
                int64_t released = world.cleaner(3).execute(
                    plan, [&](int64_t done, int64_t total) { progress.emplace_back(done, total); });
                EXPECT_FALSE(row.error);
                EXPECT_EQ(released, expectedTotal);
                EXPECT_EQ(progress.front(), (std::pair<int64_t, int64_t>{0, expectedTotal}));
            } catch (const CleanupError& error) {
                EXPECT_EQ(row.error, error);
                EXPECT_TRUE(world.sent("UID STORE").empty());
            }
            EXPECT_EQ(world.onServer(), row.staying);
            EXPECT_EQ(world.server->connectionCount(), connections + (row.connects ? 1 : 0));
        }
    }
}

} // namespace
