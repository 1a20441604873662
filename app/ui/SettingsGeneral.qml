import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts
import Quernstead

// Settings › General: where the vault is, what it holds, automatic backup, what stays off.
ScrollView {
    id: general
    objectName: "settingsGeneral"
    contentWidth: availableWidth
    // A bar that stays while there is more below, as desktop panes show it.
    ScrollBar.vertical.policy: contentHeight > availableHeight ? ScrollBar.AlwaysOn : ScrollBar.AsNeeded
    clip: true

    ColumnLayout {
        width: general.availableWidth - 48
        x: 24
        spacing: 18

        Item { implicitHeight: 2 }

        SettingsSection {
            title: "Location"
            Text {
                objectName: "vaultPath"
                Layout.fillWidth: true
                text: Store.archiveRoot
                color: Theme.ink
                font: Theme.mono
                elide: Text.ElideMiddle
            }
            RowLayout {
                spacing: 8
                VaultButton { text: "Show in File Manager"; compact: true; onClicked: Store.openArchiveInFinder() }
                VaultButton { text: "Move Vault…"; compact: true; onClicked: folderPanel.open() }
            }
        }

        SettingsSection {
            title: "Contents"
            Text {
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: "One standard .eml per message, filed as Account › Folder › Year. Any mail app can open them."
                color: Theme.ink2
                font: Theme.body
            }
            Text { text: Store.vaultSummary; color: Theme.ink; font: Theme.body }
        }

        SettingsSection {
            title: "Automatic backup"
            Switch {
                id: scheduleSwitch
                objectName: "scheduleSwitch"
                text: "Back up automatically while Quernstead is open"
                checked: VaultSettings.scheduleEnabled
                onToggled: VaultSettings.scheduleEnabled = checked
                font: Theme.body
                palette.windowText: Theme.ink
            }
            ComboBox {
                objectName: "scheduleHours"
                enabled: VaultSettings.scheduleEnabled
                model: VaultSettings.hourChoices
                textRole: "title"
                implicitWidth: 180
                currentIndex: VaultSettings.hourChoice
                onActivated: (index) => VaultSettings.hourChoice = index
            }
            Text {
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: "Quernstead looks every few minutes and backs up any account whose last backup is older than this."
                color: Theme.ink3
                font: Theme.callout
            }
        }

        SettingsSection {
            title: "Updates"
            Switch {
                objectName: "automaticUpdatesSwitch"
                text: "Download and install updates automatically"
                checked: Updater.automaticallyDownloads
                onToggled: Updater.automaticallyDownloads = checked
                font: Theme.body
                palette.windowText: Theme.ink
            }
            Text {
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                text: "New versions download in the background and install when you quit " + Updater.appName
                color: Theme.ink3
                font: Theme.callout
            }
        }

        SafetyNote {
            Layout.fillWidth: true
            symbol: "eye.slash"
            tint: Theme.seal
            text: "Remote images and web fonts stay off until you click “Show images”. Tracking pixels stay blocked even then."
        }
        SafetyNote {
            Layout.fillWidth: true
            symbol: "eye.slash"
            tint: Theme.seal
            text: "Senders whose name doesn’t match their address, or whose domain imitates a well-known one, are flagged for a second look."
        }
        Item { implicitHeight: 6 }
    }

    FolderDialog {
        id: folderPanel
        objectName: "moveVaultPanel"
        acceptLabel: "Use Folder"
        onAccepted: VaultSettings.moveVault(selectedFolder)
    }
}
