import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The line pinned under the sidebar: the state of backups at a glance. A double-click opens
// the backup ledger.
Rectangle {
    id: strip
    readonly property bool running: Store.backup.running

    implicitHeight: column.implicitHeight + 16
    color: Theme.raised

    Rectangle { anchors.top: parent.top; width: parent.width; height: 1; color: Theme.rule }

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 8
        anchors.leftMargin: 14
        spacing: 5
        RowLayout {
            spacing: 8
            SymbolIcon {
                name: strip.running ? "arrow.triangle.2.circlepath"
                    : Object.keys(Store.backupProblems).length > 0 ? "exclamationmark.triangle.fill"
                    : "checkmark.shield.fill"
                color: strip.running ? Theme.focus
                     : Object.keys(Store.backupProblems).length > 0 ? Theme.caution : Theme.seal
                size: 15
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 0
                Text {
                    objectName: "stripTitle"
                    Layout.fillWidth: true
                    text: WindowState.stripTitle
                    color: Theme.ink
                    font: Theme.headline
                    elide: Text.ElideRight
                }
                Text {
                    Layout.fillWidth: true
                    visible: text.length > 0
                    text: WindowState.stripDetail
                    color: Theme.ink3
                    font: Theme.caption
                    elide: Text.ElideRight
                }
            }
            VaultButton {
                kind: "quiet"
                compact: true
                text: "Back Up"
                symbol: strip.running ? "stop.fill" : "arrow.triangle.2.circlepath"
                enabled: WindowState.hasAccounts
                onClicked: strip.running ? Store.stopBackup() : Store.backUpAll()
            }
        }
        ProgressLine {
            Layout.fillWidth: true
            visible: strip.running
            value: Store.backup.progress.messagesDone
            total: Store.backup.progress.messagesTotal
        }
    }

    MouseArea {
        id: hoverArea
        anchors.fill: parent
        z: -1
        hoverEnabled: true
        onDoubleClicked: Store.showBackupActivity = true
    }
    ToolTip.visible: hoverArea.containsMouse
    ToolTip.delay: 800
    ToolTip.text: "Double-click for the backup ledger (Ctrl+Shift+0)"
}
