// The release against a fake server that holds the messages, with and without UIDPLUS: what
// goes, what stays, what is on the wire, and the exact counts of every stop and failure.
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

std::vector<uint32_t> range(uint32_t first, uint32_t last) {
    std::vector<uint32_t> uids;
    for (uint32_t uid = first; uid <= last; ++uid) {
        uids.push_back(uid);
    }
    return uids;
}

// 450 old messages, all filed, proven, and a newer one outside the selection.
struct Released {
    explicit Released(bool uidplus) : world(uidplus) {
        world.addMany(450);
        outside = world.add(CleanupWorld::message(999), CleanupWorld::newDate);
        world.saveSync();
        plan = world.plan();
    }

    // Runs the release; the error it ended with, if any.
    std::optional<CleanupError> run(int64_t chunkSize = 200, std::stop_token stop = {}) {
        try {
            returned = world.cleaner(chunkSize).execute(
                plan, [&](int64_t done, int64_t total) { progress.emplace_back(done, total); },
                stop);
        } catch (const CleanupError& error) {
            return error;
        }
        return std::nullopt;
    }

    void markOutside() {
        world.mailbox.edit("INBOX", [&](FakeMailbox::Folder& folder) {
            for (auto& message : folder.messages) {
                if (message.uid == outside) {
                    message.flags.push_back("\\Deleted");
                }
            }
        });
    }

    CleanupWorld world;
    uint32_t outside = 0;
    CleanupPlan plan;
    int64_t returned = -1;
    std::vector<std::pair<int64_t, int64_t>> progress;
};

TEST(CleanerExecute, ReleasesEveryProvenMessageChunkByChunk) {
    for (bool uidplus : {true, false}) {
        Released release(uidplus);
        ASSERT_EQ(release.plan.verified().size(), 450u);
        EXPECT_EQ(release.run(), std::nullopt);
        EXPECT_EQ(release.returned, 450);
        EXPECT_EQ(release.world.onServer(), std::vector<uint32_t>{release.outside});
        EXPECT_EQ(release.progress, (std::vector<std::pair<int64_t, int64_t>>{
                                        {0, 450}, {200, 450}, {400, 450}, {450, 450}}));
        EXPECT_EQ(release.world.sent("SELECT"), std::vector<std::string>{"SELECT \"INBOX\""});
        EXPECT_EQ(release.world.sent("UID STORE"),
                  (std::vector<std::string>{"UID STORE 1:200 +FLAGS.SILENT (\\Deleted)",
                                            "UID STORE 201:400 +FLAGS.SILENT (\\Deleted)",
                                            "UID STORE 401:450 +FLAGS.SILENT (\\Deleted)"}));
        if (uidplus) {
            EXPECT_EQ(release.world.sent("UID EXPUNGE"),
                      (std::vector<std::string>{"UID EXPUNGE 1:200", "UID EXPUNGE 201:400",
                                                "UID EXPUNGE 401:450"}));
            EXPECT_TRUE(release.world.sent("EXPUNGE").empty());
        } else {
            EXPECT_EQ(release.world.sent("EXPUNGE").size(), 3u);
            // The survey's, one before the run and one before each chunk.
            EXPECT_EQ(release.world.sent("UID SEARCH DELETED").size(), 1u + 1u + 3u);
        }
        EXPECT_EQ(release.world.sent("LOGOUT").size(), 2u) << "survey and release";
        // The vault is only read.
        for (uint32_t uid = 1; uid <= 450; ++uid) {
            EXPECT_TRUE(
                std::filesystem::exists(release.world.layout.url(release.world.pathOf(uid))));
        }
    }
}

TEST(CleanerExecute, ChunkSizeZeroActsAsOneAndALargeOneMakesOneChunk) {
    for (auto [chunkSize, stores] : {std::pair<int64_t, size_t>{0, 5}, {-3, 5}, {1000, 1}}) {
        CleanupWorld world(true);
        world.addMany(5);
        world.saveSync();
        CleanupPlan plan = world.plan();
        EXPECT_EQ(world.cleaner(chunkSize).execute(plan), 5);
        EXPECT_EQ(world.sent("UID STORE").size(), stores) << chunkSize;
        EXPECT_TRUE(world.onServer().empty());
    }
}

TEST(CleanerExecute, WithoutUIDPlusAnotherClientsMarkBeforeTheRunStopsEverything) {
    Released release(false);
    release.markOutside();
    // What counts is the live session, not the plan's word.
    release.plan.serverSupportsUIDPlus = true;
    auto error = release.run();
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, CleanupError::otherDeletedMessages(1));
    EXPECT_TRUE(release.world.sent("UID STORE").empty());
    EXPECT_EQ(release.world.onServer().size(), 451u);
    EXPECT_TRUE(release.progress.empty());

    // With UIDPLUS the same mark is no obstacle, and the marked message stays.
    Released named(true);
    named.markOutside();
    EXPECT_EQ(named.run(), std::nullopt);
    EXPECT_EQ(named.world.onServer(), std::vector<uint32_t>{named.outside});
}

TEST(CleanerExecute, WithoutUIDPlusAMarkAppearingDuringTheRunStopsBeforeTheNextExpunge) {
    Released release(false);
    int expunges = 0;
    bool markNext = false;
    release.world.mailbox.intercept = [&](FakeIMAPConnection&, const FakeIMAPCommand& command) {
        if (markNext) {
            // Another client marks a message between the first chunk and the second.
            release.markOutside();
            markNext = false;
        }
        markNext = command.name == "EXPUNGE" && ++expunges == 1;
        return false;
    };
    auto error = release.run();
    ASSERT_TRUE(error);
    EXPECT_EQ(*error,
              CleanupError::stopped(200, 450, CleanupError::otherDeletedMessages(1).description()));
    EXPECT_EQ(release.world.sent("EXPUNGE").size(), 1u);
    // The other client's mark is left to it; none of ours stands.
    EXPECT_EQ(release.world.markedOnServer(), std::vector<uint32_t>{release.outside});
    std::vector<uint32_t> left = range(201, 450);
    left.push_back(release.outside);
    EXPECT_EQ(release.world.onServer(), left);
}

TEST(CleanerExecute, AnExpungeFailureRollsBackItsChunkAndCountsWhatWent) {
    Released release(false);
    int expunges = 0;
    release.world.mailbox.intercept = [&](FakeIMAPConnection& connection,
                                          const FakeIMAPCommand& command) {
        if (command.name == "EXPUNGE" && ++expunges == 3) {
            connection.send(command.tag + " NO Expunge failed: quota database locked");
            return true;
        }
        return false;
    };
    auto error = release.run();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), CleanupError::Kind::stopped);
    EXPECT_EQ(error->released(), 400);
    EXPECT_EQ(error->total(), 450);
    ASSERT_TRUE(error->problem());
    EXPECT_NE(error->problem()->find("Expunge failed: quota database locked"), std::string::npos)
        << *error->problem();
    EXPECT_EQ(error->description(), "Released 400 of 450 messages, then the server reported a "
                                    "problem (" +
                                        *error->problem() +
                                        "). The other 50 are still on the server, untouched.");
    EXPECT_EQ(release.world.sent("UID STORE").back(),
              "UID STORE 401:450 -FLAGS.SILENT (\\Deleted)");
    EXPECT_TRUE(release.world.markedOnServer().empty());
    std::vector<uint32_t> left = range(401, 450);
    left.push_back(release.outside);
    EXPECT_EQ(release.world.onServer(), left);
    EXPECT_EQ(release.progress.back(), (std::pair<int64_t, int64_t>{400, 450}));
}

TEST(CleanerExecute, AStopTakesEffectBetweenChunksWithAnExactCount) {
    {
        Released release(true);
        std::stop_source stop;
        release.world.mailbox.intercept = [&](FakeIMAPConnection&, const FakeIMAPCommand& command) {
            if (command.name == "UID STORE") {
                stop.request_stop(); // during the first chunk: it is completed all the same
            }
            return false;
        };
        auto error = release.run(200, stop.get_token());
        ASSERT_TRUE(error);
        EXPECT_EQ(*error, CleanupError::stopped(200, 450));
        EXPECT_EQ(error->description(),
                  "Stopped after releasing 200 of 450 messages. The other 250 stay on the server.");
        EXPECT_EQ(release.world.onServer().size(), 251u);
        EXPECT_TRUE(release.world.markedOnServer().empty());
        EXPECT_EQ(release.progress,
                  (std::vector<std::pair<int64_t, int64_t>>{{0, 450}, {200, 450}}));
    }
    {
        Released release(true);
        std::stop_source stop;
        stop.request_stop();
        auto error = release.run(200, stop.get_token());
        ASSERT_TRUE(error);
        EXPECT_EQ(*error, CleanupError::stopped(0, 450));
        EXPECT_EQ(error->description(), "Stopped before anything was released.");
        EXPECT_TRUE(release.world.sent("UID STORE").empty());
        EXPECT_EQ(release.world.onServer().size(), 451u);
        EXPECT_EQ(release.world.sent("LOGOUT").size(), 2u);
    }
}

// Whatever changed since the survey keeps the message concerned on the server.
TEST(CleanerExecute, WhatChangedSinceTheSurveyStays) {
    using Change = std::function<void(CleanupWorld&, CleanupPlan&)>;
    auto setReportedSize = [](uint32_t uid, int64_t delta) {
        return [=](CleanupWorld& world, CleanupPlan&) {
            world.mailbox.edit("INBOX", [&](FakeMailbox::Folder& folder) {
                for (auto& message : folder.messages) {
                    if (uid == 0 || message.uid == uid) {
                        message.reportedSize = static_cast<int64_t>(message.body.size()) + delta;
                    }
                }
            });
        };
    };
    struct Row {
        const char* name;
        Change change;
        std::optional<CleanupError> error;
        std::vector<uint32_t> staying;
        bool connects;
    };
    const Row rows[] = {
        {"nothing changed", [](CleanupWorld&, CleanupPlan&) {}, std::nullopt, {}, true},
        {"file deleted",
         [](CleanupWorld& world, CleanupPlan&) {
             std::filesystem::remove(world.layout.url(world.pathOf(3)));
         },
         std::nullopt,
         {3},
         true},
        {"file truncated",
         [](CleanupWorld& world, CleanupPlan&) {
             std::filesystem::resize_file(world.layout.url(world.pathOf(4)), 10);
         },
         std::nullopt,
         {4},
         true},
        {"file overwritten with zeros",
         [](CleanupWorld& world, CleanupPlan&) {
             auto path = world.layout.url(world.pathOf(5));
             auto size = std::filesystem::file_size(path);
             std::ofstream(path, std::ios::binary) << std::string(size, '\0');
         },
         std::nullopt,
         {5},
         true},
        {"size changed on the server", setReportedSize(6, 1), std::nullopt, {6}, true},
        {"message gone from the server",
         [](CleanupWorld& world, CleanupPlan&) {
             world.mailbox.edit("INBOX", [](FakeMailbox::Folder& folder) {
                 folder.messages.erase(folder.messages.begin() + 1);
             });
         },
         std::nullopt,
         {},
         true},
        {"folder renumbered",
         [](CleanupWorld& world, CleanupPlan&) {
             world.mailbox.edit("INBOX",
                                [](FakeMailbox::Folder& folder) { folder.uidValidity = 9; });
         },
         CleanupError::uidValidityChanged(),
         {1, 2, 3, 4, 5, 6, 7, 8},
         true},
        {"every size changed on the server",
         setReportedSize(0, -1),
         CleanupError::nothingVerified(),
         {1, 2, 3, 4, 5, 6, 7, 8},
         true},
        {"every file deleted",
         [](CleanupWorld& world, CleanupPlan&) {
             std::filesystem::remove_all(world.layout.url(CleanupWorld::folderDirectory));
         },
         CleanupError::nothingVerified(),
         {1, 2, 3, 4, 5, 6, 7, 8},
         false},
        {"empty plan",
         [](CleanupWorld&, CleanupPlan& plan) { plan.items.clear(); },
         CleanupError::nothingVerified(),
         {1, 2, 3, 4, 5, 6, 7, 8},
         false},
        {"plan without verified items",
         [](CleanupWorld&, CleanupPlan& plan) {
             for (CleanupItem& item : plan.items) {
                 item.status = CleanupItem::Status::pending();
             }
         },
         CleanupError::nothingVerified(),
         {1, 2, 3, 4, 5, 6, 7, 8},
         false},
    };
    for (const Row& row : rows) {
        for (bool uidplus : {true, false}) {
            CleanupWorld world(uidplus);
            world.addMany(8);
            world.saveSync();
            CleanupPlan plan = world.plan();
            ASSERT_EQ(plan.verified().size(), 8u);
            row.change(world, plan);
            int connections = world.server->connectionCount();
            // What the server still holds at the start of the run, less what must stay.
            const auto expectedTotal = static_cast<int64_t>(world.onServer().size()) -
                                       static_cast<int64_t>(row.staying.size());
            std::vector<std::pair<int64_t, int64_t>> progress;
            try {
                int64_t released = world.cleaner(3).execute(
                    plan, [&](int64_t done, int64_t total) { progress.emplace_back(done, total); });
                EXPECT_FALSE(row.error) << row.name;
                EXPECT_EQ(released, expectedTotal) << row.name;
                EXPECT_EQ(progress.front(), (std::pair<int64_t, int64_t>{0, expectedTotal}))
                    << row.name;
            } catch (const CleanupError& error) {
                EXPECT_EQ(row.error, error) << row.name;
                EXPECT_TRUE(world.sent("UID STORE").empty()) << row.name;
            }
            EXPECT_EQ(world.onServer(), row.staying) << row.name << (uidplus ? " UIDPLUS" : "");
            EXPECT_EQ(world.server->connectionCount(), connections + (row.connects ? 1 : 0))
                << row.name;
        }
    }
}

} // namespace
