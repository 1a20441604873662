import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The main window: a toolbar over three columns (sidebar, list with the timeline, reader), or
// the welcome while there is nothing to show; toasts float above everything.
ApplicationWindow {
    id: window
    objectName: "mainWindow"
    title: "Quernstead"
    width: 1280
    height: 800
    minimumWidth: 720
    minimumHeight: 480
    color: Theme.paper
    palette.window: Theme.paper
    palette.windowText: Theme.ink
    palette.base: Theme.panel
    palette.text: Theme.ink
    palette.button: Theme.raised
    palette.buttonText: Theme.ink
    palette.highlight: Theme.focus
    palette.toolTipBase: Theme.panel
    palette.toolTipText: Theme.ink

    menuBar: AppMenuBar {}

    header: ToolBar {
        visible: WindowState.ready && !WindowState.showWelcome
        implicitHeight: 46
        background: Rectangle {
            color: Theme.raised
            Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Theme.rule }
        }
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 12
            spacing: 8

            Text { text: "Quernstead"; color: Theme.ink; font: Theme.headline; Layout.rightMargin: 8 }
            VaultButton {
                objectName: "backupButton"
                readonly property bool running: Store.backup.running
                kind: running ? "secondary" : "primary"
                compact: true
                symbol: running ? "stop.fill" : "arrow.triangle.2.circlepath"
                text: running ? "Backing Up" : "Back Up Now"
                enabled: running || WindowState.hasAccounts
                help: running ? "Stop backup (Ctrl+.)"
                    : WindowState.hasAccounts ? "Fetch new mail from every account into the vault (Ctrl+Shift+B)"
                    : "Add an account first"
                onClicked: running ? Store.stopBackup() : Store.backUpAll()
            }
            VaultButton {
                compact: true
                symbol: "arrow.up.bin"
                text: "Free Up Space"
                help: "Remove old messages from the server once their copies are verified (Ctrl+Shift+F)"
                onClicked: Store.showFreeUp = true
            }
            Item { Layout.fillWidth: true }
            VaultButton {
                id: moreButton
                kind: "quiet"
                compact: true
                symbol: "ellipsis.circle"
                help: "Import, show the vault folder, backup ledger"
                onClicked: moreMenu.popup(moreButton, 0, moreButton.height)
                Menu {
                    id: moreMenu
                    MenuItem { text: "Import .eml or .mbox…"; onTriggered: Commands.trigger("importFiles") }
                    MenuItem { text: "Show Vault in File Manager"; onTriggered: Commands.trigger("showVault") }
                    MenuItem { text: "Backup Ledger…"; onTriggered: Commands.trigger("backupLedger") }
                }
            }
        }
    }

    Loader {
        anchors.fill: parent
        sourceComponent: !WindowState.ready ? undefined : WindowState.showWelcome ? welcome : columns
    }

    Component {
        id: welcome
        WelcomeView {}
    }

    Component {
        id: columns
        SplitView {
            orientation: Qt.Horizontal
            handle: Rectangle {
                implicitWidth: 1
                color: SplitHandle.hovered || SplitHandle.pressed ? Theme.ruleStrong : Theme.rule
                containmentMask: Item { x: -3; width: 7; height: parent ? parent.height : 0 }
            }
            Sidebar {
                SplitView.preferredWidth: 250
                SplitView.minimumWidth: 190
                SplitView.maximumWidth: 380
                onRemoveAccountAsked: (id, label) => removeDialog.ask(id, label)
            }
            MessageList {
                id: messageList
                objectName: "messageColumn"
                SplitView.preferredWidth: 440
                SplitView.minimumWidth: 320
                Component.onCompleted: window.messageColumn = messageList
            }
            ReaderView {
                SplitView.fillWidth: true
                SplitView.minimumWidth: 280
            }
        }
    }

    property var messageColumn: null

    ToastOverlay {
        anchors.fill: parent
        z: 10
    }

    Dialog {
        id: removeDialog
        objectName: "removeDialog"
        property string accountId
        property string label
        function ask(id, name) { accountId = id; label = name; open() }
        anchors.centerIn: parent
        modal: true
        width: 420
        title: "Remove “" + label + "” from Quernstead?"
        background: Rectangle { color: Theme.panel; radius: Theme.rCard; border.color: Theme.rule }
        header: Text {
            text: removeDialog.title
            color: Theme.ink
            font: Theme.headline
            wrapMode: Text.WordWrap
            padding: 18
            bottomPadding: 0
        }
        contentItem: Text {
            text: "Its password is forgotten and backups stop. Messages already in the vault stay on your computer."
            color: Theme.ink2
            font: Theme.body
            wrapMode: Text.WordWrap
        }
        footer: RowLayout {
            spacing: 8
            Item { Layout.fillWidth: true }
            VaultButton { text: "Cancel"; onClicked: removeDialog.close(); Layout.bottomMargin: 16 }
            VaultButton {
                text: "Remove"
                kind: "destructive"
                Layout.bottomMargin: 16
                Layout.rightMargin: 16
                onClicked: { Store.removeAccountById(removeDialog.accountId); removeDialog.close() }
            }
        }
    }

    // The menu bar holds the window's keys; this one only moves focus.
    Shortcut { sequence: "Ctrl+F"; onActivated: window.messageColumn && window.messageColumn.searchField.forceActiveFocus() }

    AddAccountSheet {}
    LedgerSheet {}
    FreeUpSpaceSheet {}
    ImportPanel {}
    SettingsWindow {}
    UpdateWindow {}
    OnboardingView {}
    Connections {
        target: Commands
        function onStepRequested(delta) { if (window.messageColumn) window.messageColumn.move(delta) }
    }
}
