import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The add-account sheet: provider, sign-in, folders, sliding from step to step. It opens on
// Store.showAddAccount; closing it by any means cancels (nothing is kept before "Save and
// Back Up").
Popup {
    id: sheet
    objectName: "addAccountSheet"
    property alias flow: flow

    anchors.centerIn: parent
    width: Math.min(760, parent ? parent.width - 40 : 760)
    height: Math.min(640, parent ? parent.height - 40 : 640)
    modal: true
    padding: 24
    closePolicy: Popup.CloseOnEscape

    onClosed: {
        Store.showAddAccount = false
        flow.reset()
    }
    Component.onCompleted: if (Store.showAddAccount) open()
    Connections {
        target: Store
        function onShowAddAccountChanged() { Store.showAddAccount ? sheet.open() : sheet.close() }
    }

    AddAccountFlow {
        id: flow
        onFinished: sheet.close()
    }

    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, Theme.dark ? 0.5 : 0.28) }
    background: Rectangle { color: Theme.paper; radius: Theme.rCard + 2; border.color: Theme.ruleStrong }

    contentItem: ColumnLayout {
        spacing: 14

        SheetHeader {
            Layout.fillWidth: true
            eyebrow: "Add to the vault"
            title: "Connect a mail account"
            subtitle: [
                "Quernstead reads your mail over IMAP. Pick where it lives.",
                "Sign in with an app-specific password — it’s made for apps like this one.",
                "Choose the folders to keep. You can change this later in Settings."
            ][flow.step]
        }
        StepRail {
            steps: ["Provider", "Sign in", "Folders"]
            current: flow.step
        }

        // The three steps side by side; the row slides to the current one.
        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            Row {
                id: pages
                x: -flow.step * parent.width
                height: parent.height
                Behavior on x { NumberAnimation { duration: Motion.spring; easing.type: Easing.OutCubic } }

                AddAccountProviders {
                    width: pages.parent.width
                    height: pages.height
                    flow: flow
                }
                AddAccountCredentials {
                    width: pages.parent.width
                    height: pages.height
                    flow: flow
                }
                AddAccountFolders {
                    width: pages.parent.width
                    height: pages.height
                    flow: flow
                }
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            VaultButton { objectName: "cancelButton"; text: "Cancel"; onClicked: sheet.close() }
            Item { Layout.fillWidth: true }
            BusyIndicator {
                visible: flow.busy
                running: flow.busy
                implicitWidth: 18
                implicitHeight: 18
            }
            Text {
                objectName: "busyText"
                visible: flow.busy
                text: flow.busyText
                color: Theme.ink2
                font: Theme.callout
            }
            VaultButton {
                objectName: "connectButton"
                visible: flow.step === AddAccountFlow.Credentials
                kind: "primary"
                text: "Connect"
                enabled: flow.canConnect
                onClicked: flow.connectToServer()
            }
            VaultButton {
                objectName: "saveButton"
                visible: flow.step === AddAccountFlow.Folders
                kind: "primary"
                text: "Save and Back Up"
                enabled: flow.canSave
                onClicked: flow.save()
            }
        }
    }
}
