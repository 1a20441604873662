#pragma once

#include <QStringList>

#include <span>
#include <string_view>

// The menu bar as data: every command of the window with its menu, its words, its keys, the
// action the window runs and when it is enabled. The menus, the keyboard shortcuts and the
// keycaps of the welcome guide are all read from here, so they can't disagree.

namespace qs::CommandTable {

/// When a command can run; each case reads the window's state through `State`.
enum class Enablement {
    always,
    accountsIdle,    // accounts exist and no backup runs
    backupRunning,   // a backup runs
    accounts,        // accounts exist
    visibleNotEmpty, // the list shows at least one message
    messageOpen,     // the reader holds a message
    selection,       // a message is selected
    queryNotEmpty,   // the trimmed search text isn't empty
    updates,         // the build has an update feed
};

struct Command {
    std::string_view menu;
    /// As the user reads it, before PlatformWords puts it in this desktop's words.
    std::string_view title;
    /// A Qt key sequence in portable text ("Ctrl+Shift+B"); empty when there is none.
    std::string_view keys;
    /// The name `QuernsteadCommands::trigger` runs.
    std::string_view action;
    Enablement enabled;
};

struct State {
    bool hasAccounts = false;
    bool backupRunning = false;
    bool visibleNotEmpty = false;
    bool messageOpen = false;
    bool selection = false;
    bool queryNotEmpty = false;
    bool updatesActive = false;
};

/// The menus in order: "File", "Mailbox", "Message", "Help".
std::span<const std::string_view> menus();
/// Every command, menu by menu, in the order the menus show them.
std::span<const Command> commands();
/// The command running `action`; null for an unknown one.
const Command* find(std::string_view action);
bool isEnabled(Enablement rule, const State& state);
/// The keys as caps to draw: "Ctrl+Shift+Up" gives "Ctrl", "Shift", "↑".
QStringList keycaps(std::string_view keys);

} // namespace qs::CommandTable
