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
    const State searching{.queryNotEmpty = true};
    const State updating{.updatesActive = true};
    const struct {
        const char* action;
        State state;
        bool enabled;
    } rows[] = {
        {"backUpNow", idle, true},        {"backUpNow", running, false},
        {"backUpNow", none, false},       {"stopBackup", running, true},
        {"stopBackup", idle, false},      {"freeUpSpace", idle, true},
        {"freeUpSpace", none, false},     {"nextMessage", browsing, true},
        {"previousMessage", none, false}, {"showImages", browsing, false},
        {"showImages", reading, true},    {"revealMessage", browsing, true},
        {"openInMailApp", none, false},   {"saveSearch", searching, true},
        {"saveSearch", browsing, false},  {"addAccount", none, true},
        {"showEverything", none, true},   {"backupLedger", none, true},
        {"rebuildIndex", none, true},     {"showWelcome", none, true},
        {"checkForUpdates", none, false}, {"checkForUpdates", updating, true},
    };
    for (const auto& row : rows) {
        const auto* command = CommandTable::find(row.action);
        ASSERT_NE(command, nullptr) << row.action;
        EXPECT_EQ(CommandTable::isEnabled(command->enabled, row.state), row.enabled) << row.action;
    }
}

TEST(CommandTable, KeysAreUniqueAndDrawnAsLinuxCaps) {
    std::set<std::string_view> seen;
    for (const auto& command : CommandTable::commands()) {
        if (!command.keys.empty()) {
            EXPECT_TRUE(seen.insert(command.keys).second) << command.keys;
        }
    }
    EXPECT_EQ(CommandTable::keycaps("Ctrl+Shift+Up"), (QStringList{"Ctrl", "Shift", "↑"}));
    EXPECT_EQ(CommandTable::keycaps("Alt+Ctrl+S"), (QStringList{"Alt", "Ctrl", "S"}));
}

} // namespace
} // namespace qs
