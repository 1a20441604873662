// A randomised check of the one promise of a release: no message leaves the server unless, at
// that moment, its copy in the vault has the server's exact size and reads as an email. Each
// seeded scenario files some mail, damages the vault and the server at random (copies lost,
// cut, not mail; messages changed or lying about their size; marks by other clients;
// the folder renumbered), surveys, damages again, and releases, while the fake server checks
// every EXPUNGE as it arrives.
#include "CleanupWorld.h"
#include "mime/MIMEParser.h"
#include "support/FileIO.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <set>

namespace {

namespace fs = std::filesystem;
using namespace qs;
using test::CleanupWorld;
using test::FakeIMAPCommand;
using test::FakeIMAPConnection;
using test::FakeMailbox;

constexpr int scenarios = 300;

bool hasDeleted(const FakeMailbox::Message& message) {
    return std::find(message.flags.begin(), message.flags.end(), "\\Deleted") !=
           message.flags.end();
}

struct Scenario {
    explicit Scenario(std::mt19937& random) : random(random), world(coin(0.5)) {}

    bool coin(double p) { return std::bernoulli_distribution(p)(random); }
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }

    uint32_t anyUID() {
        std::vector<uint32_t> uids = world.onServer();
        return uids.empty() ? 0
                            : uids[static_cast<size_t>(pick(0, static_cast<int>(uids.size()) - 1))];
    }

    void editMessage(uint32_t uid, const std::function<void(FakeMailbox::Message&)>& change) {
        world.mailbox.edit("INBOX", [&](FakeMailbox::Folder& folder) {
            for (FakeMailbox::Message& message : folder.messages) {
                if (message.uid == uid) {
                    change(message);
                }
            }
        });
    }

    void markByAnotherClient(uint32_t uid) {
        if (uid == 0) {
            return;
        }
        {
            std::lock_guard lock(mutex);
            otherMarks.insert(uid);
        }
        editMessage(uid, [](FakeMailbox::Message& message) {
            if (!hasDeleted(message)) {
                message.flags.push_back("\\Deleted");
            }
        });
    }

    // One random harm to the vault or the server.
    void damage() {
        uint32_t uid = anyUID();
        if (uid == 0) {
            return;
        }
        fs::path file = world.layout.url(world.pathOf(uid));
        bool present = fs::exists(file);
        switch (pick(0, 6)) {
        case 0:
            fs::remove(file);
            break;
        case 1:
            if (present) {
                auto size = fs::file_size(file);
                fs::resize_file(file, static_cast<uintmax_t>(pick(0, static_cast<int>(size))));
            }
            break;
        case 2: // the same length of text that isn't mail
            if (present) {
                std::ofstream(file, std::ios::binary) << std::string(fs::file_size(file), 'x');
            }
            break;
        case 3: // the message changed on the server
            editMessage(uid, [&](FakeMailbox::Message& message) {
                message.body =
                    CleanupWorld::message(pick(100, 999), static_cast<size_t>(pick(0, 3)));
            });
            break;
        case 4: // the server reports another size
            editMessage(uid, [&](FakeMailbox::Message& message) {
                message.reportedSize =
                    static_cast<int64_t>(message.body.size()) + (coin(0.5) ? 1 : -1);
            });
            break;
        case 5:
            markByAnotherClient(uid);
            break;
        case 6:
            if (coin(0.3)) {
                world.mailbox.edit("INBOX",
                                   [](FakeMailbox::Folder& folder) { ++folder.uidValidity; });
            }
            break;
        }
    }

    // At each EXPUNGE, before the server acts: what is about to go must be proven right now.
    void checkExpunge(const FakeIMAPCommand& command, const std::set<uint32_t>& verified) {
        for (const FakeMailbox::Message& message : world.mailbox.messages("INBOX")) {
            if (!hasDeleted(message) ||
                (command.name == "UID EXPUNGE" &&
                 !FakeMailbox::inSet(command.arguments[0], message.uid, 0))) {
                continue;
            }
            auto file = world.layout.url(world.pathOf(message.uid));
            auto serverSize = message.reportedSize.value_or(std::ssize(message.body));
            std::error_code error;
            bool proven = verified.contains(message.uid) &&
                          std::cmp_equal(fs::file_size(file, error), serverSize) && !error &&
                          MIMEParser::looksValid(FileIO::read(file));
            std::lock_guard lock(mutex);
            ++checked;
            if (!proven) {
                violations.push_back("UID " + std::to_string(message.uid));
            }
        }
    }

    std::mt19937& random;
    CleanupWorld world;
    // What the server side of the release showed.
    std::mutex mutex;
    std::vector<std::string> violations;
    std::set<uint32_t> otherMarks;
    int64_t checked = 0;
};

TEST(CleanerSafety, NoMessageLeavesWithoutAProvenCopyAtThatMoment) {
    std::mt19937 random(20261122);
    int64_t released = 0;
    for (int index = 0; index < scenarios; ++index) {
        Scenario scenario(random);
        CleanupWorld& world = scenario.world;
        const bool uidplus = world.mailbox.greeting().find("UIDPLUS") != std::string::npos;
        int count = scenario.pick(0, 10);
        for (int i = 0; i < count; ++i) {
            world.add(CleanupWorld::message(i, static_cast<size_t>(scenario.pick(0, 3))),
                      scenario.coin(0.8) ? CleanupWorld::oldDate : CleanupWorld::newDate,
                      scenario.coin(0.85), scenario.coin(0.8));
        }
        world.saveSync();
        for (int i = scenario.pick(0, 2); i > 0; --i) {
            scenario.damage();
        }
        CleanupPlan plan = world.plan();
        for (int i = scenario.pick(0, 3); i > 0; --i) {
            scenario.damage();
        }
        std::set<uint32_t> verified;
        for (const CleanupItem& item : plan.verified()) {
            verified.insert(item.uid);
            EXPECT_EQ(item.localPath, world.pathOf(item.uid));
        }

        // During the run the vault stays as the release proved it (nothing else writes
        // there); the server may change. Without UIDPLUS a mark set between a chunk's search
        // and its EXPUNGE is beyond any client's reach, so marks then land only on the
        // commands around a chunk's STORE and EXPUNGE.
        std::stop_source stop;
        int commands = 0;
        int markAt = scenario.coin(0.4) ? scenario.pick(0, 14) : -1;
        int stopAt = scenario.coin(0.15) ? scenario.pick(0, 14) : -1;
        world.mailbox.intercept = [&](FakeIMAPConnection&, const FakeIMAPCommand& command) {
            int at = commands++;
            bool inChunk = command.name == "UID STORE" || command.name == "EXPUNGE";
            if (at == markAt && (uidplus || !inChunk)) {
                scenario.markByAnotherClient(scenario.anyUID());
            }
            if (at == stopAt) {
                stop.request_stop();
            }
            if (command.name == "EXPUNGE" || command.name == "UID EXPUNGE") {
                scenario.checkExpunge(command, verified);
            }
            return false;
        };

        const size_t before = world.onServer().size();
        int64_t gone = -1;
        try {
            gone = world.cleaner(scenario.pick(0, 4)).execute(plan, {}, stop.get_token());
        } catch (const CleanupError& error) {
            gone = error.released();
        }
        world.mailbox.intercept = nullptr;

        // The count is exact, and no mark of ours stays behind.
        const size_t after = world.onServer().size();
        EXPECT_EQ(static_cast<int64_t>(before - after), gone) << "scenario " << index;
        for (uint32_t uid : world.markedOnServer()) {
            EXPECT_TRUE(scenario.otherMarks.contains(uid))
                << "scenario " << index << ": UID " << uid << " left marked";
        }
        EXPECT_EQ(scenario.violations, std::vector<std::string>{}) << "scenario " << index;
        EXPECT_EQ(scenario.checked, gone) << "scenario " << index;
        released += scenario.checked;
    }
    EXPECT_GT(released, scenarios);
}

} // namespace
