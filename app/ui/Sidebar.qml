import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The left column: the vault, its shelves, saved searches and accounts, then "Add Account"
// and the backup strip.
Rectangle {
    id: sidebar
    color: Theme.raised

    signal removeAccountAsked(string id, string label)

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Flickable {
            Layout.fillWidth: true
            Layout.fillHeight: true
            contentHeight: content.implicitHeight + 16
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}

            ColumnLayout {
                id: content
                width: parent.width
                spacing: 1

                VaultHeader {
                    Layout.fillWidth: true
                    Layout.margins: 16
                    Layout.bottomMargin: 10
                }

                SmallCaps { text: "Shelves"; Layout.leftMargin: 16; Layout.bottomMargin: 4 }
                Repeater {
                    model: WindowState.shelves
                    SidebarRow {
                        required property var modelData
                        symbol: modelData.symbol
                        title: modelData.title
                        count: modelData.count
                        caution: modelData.caution === true
                        selected: WindowState.sidebarKey === modelData.key
                        onClicked: modelData.key === "all" ? Store.showEverything()
                                                           : Store.showSmart(modelData.key.slice(6))
                    }
                }

                SmallCaps {
                    visible: Store.savedSearches.length > 0
                    text: "Saved Searches"
                    Layout.leftMargin: 16
                    Layout.topMargin: 14
                    Layout.bottomMargin: 4
                }
                ListView {
                    Layout.fillWidth: true
                    Layout.preferredHeight: contentHeight
                    interactive: false
                    model: Store.savedSearches
                    delegate: SidebarRow {
                        required property var modelData
                        width: ListView.view.width
                        symbol: "text.magnifyingglass"
                        tint: Theme.ink2
                        title: modelData.name
                        selected: WindowState.sidebarKey === "saved:" + modelData.id
                        onClicked: Store.showSaved(modelData.id)
                        onContextMenu: (x, y) => savedMenu.popup()
                        Menu {
                            id: savedMenu
                            MenuItem {
                                text: "Remove Saved Search"
                                onTriggered: Store.removeSavedSearchById(modelData.id)
                            }
                        }
                    }
                    add: Transition {
                        NumberAnimation { property: "opacity"; from: 0; to: 1; duration: Motion.spring }
                        NumberAnimation { property: "x"; from: Motion.reduced ? 0 : -8; to: 0; duration: Motion.spring }
                    }
                    remove: Transition {
                        NumberAnimation { property: "opacity"; to: 0; duration: Motion.spring }
                        NumberAnimation { property: "x"; to: Motion.reduced ? 0 : -8; duration: Motion.spring }
                    }
                }

                SmallCaps {
                    visible: Store.archiveAccounts.length > 0
                    text: "Accounts"
                    Layout.leftMargin: 16
                    Layout.topMargin: 14
                    Layout.bottomMargin: 4
                }
                Repeater {
                    model: Store.archiveAccounts
                    ColumnLayout {
                        id: accountBlock
                        required property string modelData
                        readonly property var account: WindowState.accountOfDirectory(modelData)
                        readonly property bool expanded: Store.expandedAccounts.indexOf(modelData) >= 0
                        Layout.fillWidth: true
                        spacing: 1

                        SidebarRow {
                            symbol: WindowState.accountSymbol(accountBlock.modelData)
                            tint: symbol === "exclamationmark.circle" ? Theme.caution : Theme.ink2
                            title: accountBlock.modelData
                            selected: WindowState.sidebarKey === "account:" + accountBlock.modelData
                            onClicked: Store.showAccount(accountBlock.modelData)
                            onContextMenu: (x, y) => { if (accountBlock.account) accountMenu.popup() }

                            SymbolIcon {
                                name: "chevron.right"
                                color: Theme.ink3
                                size: 11
                                x: 3
                                anchors.verticalCenter: parent.verticalCenter
                                rotation: accountBlock.expanded ? 90 : 0
                                Behavior on rotation { NumberAnimation { duration: Motion.snappy } }
                                MouseArea {
                                    anchors.fill: parent
                                    anchors.margins: -4
                                    onClicked: Store.setAccountExpanded(accountBlock.modelData, !accountBlock.expanded)
                                }
                            }
                            Menu {
                                id: accountMenu
                                MenuItem {
                                    text: "Back Up This Account"
                                    enabled: !Store.backup.running
                                    onTriggered: Store.backUpAccount(accountBlock.account.id)
                                }
                                MenuItem {
                                    text: "Remove Account…"
                                    onTriggered: sidebar.removeAccountAsked(accountBlock.account.id, accountBlock.account.label)
                                }
                            }
                        }
                        Repeater {
                            model: accountBlock.expanded ? (Store.folders[accountBlock.modelData] || []) : []
                            SidebarRow {
                                required property var modelData
                                indent: 18
                                symbol: WindowState.folderSymbol(modelData.folder)
                                title: modelData.folder
                                count: modelData.count
                                selected: WindowState.sidebarKey === "folder:" + modelData.account + "/" + modelData.folder
                                onClicked: Store.showFolder(modelData.account, modelData.folder)
                            }
                        }
                    }
                }
            }
        }

        VaultButton {
            Layout.fillWidth: true
            Layout.margins: 8
            kind: "quiet"
            symbol: "plus"
            text: "Add Account"
            help: "Connect another IMAP account (Ctrl+N)"
            onClicked: Store.showAddAccount = true
        }
        BackupStrip { Layout.fillWidth: true }
    }
}
