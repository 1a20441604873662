// Randomised: no message leaves the server unless, at its EXPUNGE, its vault copy has the
// server's exact size and reads as mail, whatever damage either side took before and during.
#include "CleanupWorld.h"
#include "mime/MIMEParser.h"
#include "support/FileIO.h"

#include <gtest/gtest.h>

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
using Message = FakeMailbox::Message;

bool hasDeleted(const Message& message) {
    return std::ranges::count(message.flags, "\\Deleted");
}

struct Scenario {
    explicit Scenario(std::mt19937& random) : random(random), world(coin(0.5)) {}

    bool coin(double p) { return std::bernoulli_distribution(p)(random); }
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }

    uint32_t anyUID() {
        auto uids = world.onServer();
        return uids.empty() ? 0 : uids[static_cast<size_t>(pick(0, std::ssize(uids) - 1))];
    }

    void edit(uint32_t uid, const std::function<void(Message&)>& change) {
        world.mailbox.edit("INBOX", [&](FakeMailbox::Folder& folder) {
            std::ranges::for_each(folder.messages, [&](Message& m) {
                if (m.uid == uid) {
                    change(m);
                }
            });
        });
    }

    void markByAnotherClient(uint32_t uid) {
        {
            std::lock_guard lock(mutex);
            otherMarks.insert(uid);
        }
        edit(uid, [](Message& m) {
            if (!hasDeleted(m)) {
                m.flags.push_back("\\Deleted");
            }
        });
    }

    void damage() {
        uint32_t uid = anyUID();
        fs::path file = world.layout.url(world.pathOf(uid));
        bool present = uid != 0 && fs::exists(file);
        switch (uid == 0 ? -1 : pick(0, 5)) {
        case 0:
            fs::remove(file);
            break;
        case 1:
            if (present) {
                fs::resize_file(
                    file, static_cast<uintmax_t>(pick(0, static_cast<int>(fs::file_size(file)))));
            }
            break;
        case 2: // same length, not mail
            if (present) {
                std::ofstream(file, std::ios::binary) << std::string(fs::file_size(file), 'x');
            }
            break;
        case 3: // the server's copy changed
            edit(uid, [&](Message& m) {
                m.body = CleanupWorld::message(pick(100, 999), static_cast<size_t>(pick(0, 3)));
            });
            break;
        case 4:
            markByAnotherClient(uid);
            break;
        case 5:
            world.mailbox.edit("INBOX",
                               [&](FakeMailbox::Folder& f) { f.uidValidity += coin(0.3); });
            break;
        }
    }

    // Before the server acts on an EXPUNGE: whatever is about to go must be proven right now.
    void checkExpunge(const FakeIMAPCommand& command, const std::set<uint32_t>& verified) {
        for (const Message& message : world.mailbox.messages("INBOX")) {
            if (!hasDeleted(message) ||
                (command.name == "UID EXPUNGE" &&
                 !FakeMailbox::inSet(command.arguments[0], message.uid, 0))) {
                continue;
            }
            auto file = world.layout.url(world.pathOf(message.uid));
            std::error_code error;
            bool proven = verified.contains(message.uid) &&
                          std::cmp_equal(fs::file_size(file, error),
                                         message.reportedSize.value_or(std::ssize(message.body))) &&
                          !error && MIMEParser::looksValid(FileIO::read(file));
            std::lock_guard lock(mutex);
            ++checked;
            unproven += proven ? 0 : 1;
        }
    }

    std::mt19937& random;
    CleanupWorld world;
    std::mutex mutex;
    std::set<uint32_t> otherMarks;
    int64_t checked = 0, unproven = 0;
};

TEST(CleanerSafety, NoMessageLeavesWithoutAProvenCopyAtThatMoment) {
    constexpr int scenarios = 300;
    std::mt19937 random(20261122);
    int64_t released = 0;
    for (int index = 0; index < scenarios; ++index) {
        SCOPED_TRACE(index);
        Scenario scenario(random);
        CleanupWorld& world = scenario.world;
        const bool uidplus = world.mailbox.greeting().find("UIDPLUS") != std::string::npos;
        for (int i = 0, count = scenario.pick(0, 10); i < count; ++i) {
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
        std::ranges::for_each(plan.verified(), [&](auto& item) { verified.insert(item.uid); });

        // Without UIDPLUS no client can help a mark set inside a chunk's STORE..EXPUNGE.
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

        EXPECT_EQ(static_cast<int64_t>(before - world.onServer().size()), gone);
        for (uint32_t uid : world.markedOnServer()) {
            EXPECT_TRUE(scenario.otherMarks.contains(uid)) << "UID " << uid << " left marked";
        }
        EXPECT_EQ(scenario.unproven, 0);
        EXPECT_EQ(scenario.checked, gone);
        released += scenario.checked;
    }
    EXPECT_GT(released, scenarios);
}

} // namespace
