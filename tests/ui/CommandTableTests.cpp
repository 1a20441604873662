#include "ui/CommandTable.h"

#include <gtest/gtest.h>

#include <set>

namespace qs {
namespace {

using CommandTable::State;

TEST(CommandTable, EachCommandIsEnabledInTheStatesItsMenuPromises) {
    const State none{};
    const State idle{.hasAccounts = true};
    const State running{.hasAccounts = true, .backupRunning = true};
    const State browsing{.visibleNotEmpty = true, .selection = true};
    const State reading{.visibleNotEmpty = true, .messageOpen = true, .selection = true};
    // Enabled in `on`, and in `off` not.
    const struct {
        const char* action;
        State on;
        State off;
    } rows[] = {
        {"backUpNow", idle, running},
        {"stopBackup", running, idle},
        {"showImages", reading, browsing},
        {"saveSearch", {.queryNotEmpty = true}, browsing},
        {"checkForUpdates", {.updatesActive = true}, none},
    };
    for (const auto& row : rows) {
        const auto* command = CommandTable::find(row.action);
        ASSERT_NE(command, nullptr) << row.action;
        EXPECT_TRUE(CommandTable::isEnabled(command->enabled, row.on)) << row.action;
        EXPECT_FALSE(CommandTable::isEnabled(command->enabled, row.off)) << row.action;
    }
}

TEST(CommandTable, KeysAreUniqueAndDrawnAsLinuxCaps) {
    std::set<std::string_view> seen;
    for (const auto& command : CommandTable::commands())
        EXPECT_TRUE(command.keys.empty() || seen.insert(command.keys).second) << command.keys;
    EXPECT_EQ(CommandTable::keycaps("Ctrl+Shift+Up"), (QStringList{"Ctrl", "Shift", "↑"}));
}

} // namespace
} // namespace qs
