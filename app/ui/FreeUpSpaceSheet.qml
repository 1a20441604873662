import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The only place that deletes from a server, slow on purpose: choose, verify every copy, type
// to confirm, release. It opens on Store.showFreeUp and draws the store's cleanup walk.
Popup {
    id: sheet
    objectName: "freeUpSpaceSheet"
    property alias flow: flow
    readonly property var view: flow.view
    readonly property bool hasAccounts: flow.accounts.length > 0

    anchors.centerIn: parent
    width: Math.min(720, parent ? parent.width - 40 : 720)
    height: Math.min(660, parent ? parent.height - 40 : 660)
    modal: true
    padding: 24
    closePolicy: Popup.CloseOnEscape

    onAboutToShow: flow.start()
    onClosed: {
        if (view.busy)
            Store.cancelCleanup()
        if (view.stage === 3)
            Store.resetCleanup()
        Store.showFreeUp = false
    }
    Component.onCompleted: if (Store.showFreeUp) open()
    Connections {
        target: Store
        function onShowFreeUpChanged() { Store.showFreeUp ? sheet.open() : sheet.close() }
    }
    Shortcut { sequence: "Ctrl+."; enabled: sheet.visible && sheet.view.busy; onActivated: Store.cancelCleanup() }

    FreeUpFlow { id: flow }

    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, Theme.dark ? 0.5 : 0.28) }
    background: Rectangle { color: Theme.paper; radius: Theme.rCard + 2; border.color: Theme.ruleStrong }

    contentItem: ColumnLayout {
        spacing: 14

        SheetHeader {
            Layout.fillWidth: true
            eyebrow: "Free up space on the server"
            title: sheet.view.title
        }
        StepRail {
            steps: ["Choose", "Verify", "Release", "Done"]
            current: sheet.view.stage
        }

        VaultEmpty {
            visible: !sheet.hasAccounts
            Layout.fillWidth: true
            Layout.fillHeight: true
            symbol: "person.crop.circle.badge.plus"
            texts: ["Connect an account to start filling the vault."]
        }

        StackLayout {
            visible: sheet.hasAccounts
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: sheet.view.stage
            FreeUpChoose { flow: flow; view: sheet.view }
            FreeUpVerify { view: sheet.view }
            FreeUpRelease { flow: flow; view: sheet.view }
            FreeUpDone { view: sheet.view }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            VaultButton {
                visible: sheet.view.stage !== 3
                text: "Cancel"
                onClicked: sheet.close()
            }
            Item { Layout.fillWidth: true }
            VaultButton {
                visible: sheet.view.busy
                symbol: "stop.fill"
                text: "Stop"
                help: sheet.view.stage === 2
                      ? "Stop after the current round; anything not yet released stays on the server"
                      : "Stop after the current batch (Ctrl+.)"
                onClicked: Store.cancelCleanup()
            }
            VaultButton {
                objectName: "verifyButton"
                visible: sheet.view.stage === 0
                kind: "primary"
                symbol: "checkmark.shield"
                text: "Verify Copies"
                help: "Compare the server with your vault. Nothing is deleted."
                enabled: sheet.hasAccounts
                onClicked: flow.verify()
            }
            VaultButton {
                visible: sheet.view.stage === 1 && !sheet.view.busy
                text: "Back"
                onClicked: Store.resetCleanup()
            }
            VaultButton {
                objectName: "continueButton"
                visible: sheet.view.stage === 1 && !sheet.view.busy
                kind: "primary"
                symbol: "arrow.right"
                text: "Continue to Release"
                enabled: sheet.view.canContinue === true
                onClicked: flow.continueToRelease()
            }
            VaultButton {
                visible: sheet.view.stage === 2 && !sheet.view.busy
                text: "Back"
                onClicked: flow.backToVerify()
            }
            VaultButton {
                objectName: "releaseButton"
                visible: sheet.view.stage === 2 && !sheet.view.busy
                kind: "destructive"
                text: sheet.view.releaseTitle || ""
                enabled: sheet.view.canRelease === true
                help: enabled ? "" : "Type the confirmation to enable"
                onClicked: flow.release()
            }
            VaultButton {
                visible: sheet.view.stage === 3
                kind: "primary"
                text: "Done"
                onClicked: sheet.close()
            }
        }
    }
}
