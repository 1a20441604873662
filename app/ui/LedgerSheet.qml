import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The backup ledger: per account and folder, what the last or running backup did. It opens on
// Store.showBackupActivity.
Popup {
    id: sheet
    objectName: "ledgerSheet"

    anchors.centerIn: parent
    width: Math.min(640, parent ? parent.width - 40 : 640)
    height: Math.min(620, parent ? parent.height - 40 : 620)
    modal: true
    padding: 24
    closePolicy: Popup.CloseOnEscape

    onClosed: Store.showBackupActivity = false
    Component.onCompleted: if (Store.showBackupActivity) open()
    Connections {
        target: Store
        function onShowBackupActivityChanged() { Store.showBackupActivity ? sheet.open() : sheet.close() }
    }

    BackupLedger {
        id: ledger
        active: sheet.visible
    }

    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, Theme.dark ? 0.5 : 0.28) }
    background: Rectangle { color: Theme.paper; radius: Theme.rCard + 2; border.color: Theme.ruleStrong }

    contentItem: ColumnLayout {
        spacing: 14

        SheetHeader {
            Layout.fillWidth: true
            eyebrow: "Backup ledger"
            title: ledger.title
        }

        VaultEmpty {
            visible: ledger.sections.length === 0
            Layout.fillWidth: true
            Layout.fillHeight: true
            symbol: "person.crop.circle.badge.plus"
            title: "No accounts yet"
            texts: ["Connect an account to start filling the vault."]
            actionTitle: "Add Account"
            onAction: {
                sheet.close()
                Store.showAddAccount = true
            }
        }

        Flickable {
            visible: ledger.sections.length > 0
            Layout.fillWidth: true
            Layout.fillHeight: true
            contentHeight: accounts.implicitHeight
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}

            ColumnLayout {
                id: accounts
                width: parent.width
                spacing: 12
                Repeater {
                    model: ledger.sections
                    LedgerAccountSection {
                        required property var modelData
                        Layout.fillWidth: true
                        section: modelData
                    }
                }
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            SymbolIcon { name: "folder"; color: Theme.ink3; size: 14 }
            Text {
                Layout.fillWidth: true
                text: Store.archiveRoot
                color: Theme.ink2
                font: Theme.caption
                elide: Text.ElideMiddle
            }
            VaultButton { compact: true; text: "Show"; onClicked: Store.openArchiveInFinder() }
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            Item { Layout.fillWidth: true }
            VaultButton {
                objectName: "backUpAll"
                visible: !Store.backup.running
                enabled: ledger.sections.length > 0
                text: "Back Up All"
                onClicked: Store.backUpAll()
            }
            VaultButton {
                objectName: "stopBackup"
                visible: Store.backup.running
                symbol: "stop.fill"
                text: "Stop"
                help: "Stop after the current batch (Ctrl+.)"
                onClicked: Store.stopBackup()
            }
            VaultButton { kind: "primary"; text: "Close"; onClicked: sheet.close() }
        }
    }
}
