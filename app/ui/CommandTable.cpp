#include "CommandTable.h"

#include <array>

namespace qs::CommandTable {

namespace {

using enum Enablement;

constexpr std::array<std::string_view, 4> menuNames{"File", "Mailbox", "Message", "Help"};

// "Settings…" and "Quit" are the desktop's own items of the File menu; the rest are the
// system's commands. ⌘ is Ctrl here, ⌥ is Alt and ⇧ is Shift.
constexpr std::array table{
    Command{"File", "Add Account…", "Ctrl+N", "addAccount", always},
    Command{"File", "Import .eml or .mbox…", "Ctrl+Shift+I", "importFiles", always},
    Command{"File", "Show Vault in Finder", "Ctrl+Shift+A", "showVault", always},
    Command{"File", "Settings…", "Ctrl+,", "settings", always},
    Command{"File", "Quit", "Ctrl+Q", "quit", always},
    Command{"Mailbox", "Back Up Now", "Ctrl+Shift+B", "backUpNow", accountsIdle},
    Command{"Mailbox", "Stop Backup", "Ctrl+.", "stopBackup", backupRunning},
    Command{"Mailbox", "Backup Ledger…", "Ctrl+Shift+0", "backupLedger", always},
    Command{"Mailbox", "Free Up Space…", "Ctrl+Shift+F", "freeUpSpace", accounts},
    Command{"Mailbox", "Everything", "Ctrl+1", "showEverything", always},
    Command{"Mailbox", "Last 30 Days", "Ctrl+2", "showRecent", always},
    Command{"Mailbox", "With Attachments", "Ctrl+3", "showAttachments", always},
    Command{"Mailbox", "Needs a Second Look", "Ctrl+4", "showSuspicious", always},
    Command{"Mailbox", "Rebuild Search Index", "", "rebuildIndex", always},
    Command{"Message", "Next Message", "Ctrl+Down", "nextMessage", visibleNotEmpty},
    Command{"Message", "Previous Message", "Ctrl+Up", "previousMessage", visibleNotEmpty},
    Command{"Message", "Show Images", "Ctrl+Shift+L", "showImages", messageOpen},
    Command{"Message", "Show in Finder", "Ctrl+Shift+R", "revealMessage", selection},
    Command{"Message", "Open in Default Mail App", "Ctrl+O", "openInMailApp", selection},
    Command{"Message", "Save Search as Smart Filter", "Ctrl+Alt+S", "saveSearch", queryNotEmpty},
    Command{"Help", "Welcome to Quernstead…", "", "showWelcome", always},
    Command{"Help", "Check for Updates…", "", "checkForUpdates", updates},
};

QString capOf(QStringView key) {
    if (key == u"Up")
        return QStringLiteral("↑");
    if (key == u"Down")
        return QStringLiteral("↓");
    return key.toString();
}

} // namespace

std::span<const std::string_view> menus() {
    return menuNames;
}

std::span<const Command> commands() {
    return table;
}

const Command* find(std::string_view action) {
    for (const Command& command : table) {
        if (command.action == action)
            return &command;
    }
    return nullptr;
}

bool isEnabled(Enablement rule, const State& state) {
    switch (rule) {
    case always:
        return true;
    case accountsIdle:
        return state.hasAccounts && !state.backupRunning;
    case backupRunning:
        return state.backupRunning;
    case accounts:
        return state.hasAccounts;
    case visibleNotEmpty:
        return state.visibleNotEmpty;
    case messageOpen:
        return state.messageOpen;
    case selection:
        return state.selection;
    case queryNotEmpty:
        return state.queryNotEmpty;
    case updates:
        return state.updatesActive;
    }
    return false;
}

QStringList keycaps(std::string_view keys) {
    QStringList caps;
    const QString text = QString::fromUtf8(keys.data(), qsizetype(keys.size()));
    // "Ctrl++" would need care; no command uses the plus key.
    for (QStringView key : QStringView(text).split(u'+', Qt::SkipEmptyParts))
        caps.append(capOf(key));
    return caps;
}

} // namespace qs::CommandTable
