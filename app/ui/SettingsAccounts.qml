import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// Settings › Accounts: each account with its server, last backup and the folders it backs up.
Item {
    id: accountsTab
    objectName: "settingsAccounts"
    property var removing: null

    VaultEmpty {
        anchors.centerIn: parent
        visible: VaultSettings.accounts.length === 0
        symbol: "person.crop.circle.badge.plus"
        title: "No accounts yet"
        texts: ["Add an IMAP account to start filling the vault."]
        actionTitle: "Add Account"
        onAction: Store.showAddAccount = true
    }

    ScrollView {
        id: scroll
        anchors.fill: parent
        visible: VaultSettings.accounts.length > 0
        contentWidth: availableWidth
        // A bar that stays while there is more below, as desktop panes show it.
        ScrollBar.vertical.policy: contentHeight > availableHeight ? ScrollBar.AlwaysOn : ScrollBar.AsNeeded
        clip: true

        ColumnLayout {
            width: scroll.availableWidth - 48
            x: 24
            spacing: 18
            Item { implicitHeight: 2 }
            Repeater {
                model: VaultSettings.accounts
                SettingsSection {
                    id: account
                    required property var modelData
                    title: modelData.label
                    Leader { Layout.fillWidth: true; label: "Server"; value: account.modelData.server }
                    Leader { Layout.fillWidth: true; label: "Last backup"; value: account.modelData.lastBackup }
                    Text {
                        Layout.topMargin: 4
                        text: account.modelData.foldersTitle
                        color: Theme.ink
                        font: Theme.headline
                    }
                    Repeater {
                        model: account.modelData.folders
                        CheckBox {
                            required property var modelData
                            text: modelData.title
                            checked: modelData.included
                            font: Theme.body
                            onToggled: VaultSettings.setFolderIncluded(account.modelData.id, modelData.name, checked)
                        }
                    }
                    VaultButton {
                        text: "Remove Account…"
                        kind: "destructive"
                        compact: true
                        onClicked: { accountsTab.removing = account.modelData; confirm.open() }
                    }
                }
            }
            Item { implicitHeight: 6 }
        }
    }

    Dialog {
        id: confirm
        objectName: "settingsRemoveDialog"
        anchors.centerIn: parent
        modal: true
        width: 400
        onClosed: accountsTab.removing = null
        background: Rectangle { color: Theme.panel; radius: Theme.rCard; border.color: Theme.rule }
        header: Text {
            text: accountsTab.removing ? "Remove “" + accountsTab.removing.label + "” from Quernstead?" : ""
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
            VaultButton { text: "Cancel"; onClicked: confirm.close(); Layout.bottomMargin: 16 }
            VaultButton {
                text: "Remove Account"
                kind: "destructive"
                Layout.bottomMargin: 16
                Layout.rightMargin: 16
                onClicked: { Store.removeAccountById(accountsTab.removing.id); confirm.close() }
            }
        }
    }
}
