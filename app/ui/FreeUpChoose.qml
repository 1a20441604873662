import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// Free up space, step one: which account, folder and age, and the three promises.
ColumnLayout {
    property FreeUpFlow flow
    property var view: ({})
    spacing: 12

    GridLayout {
        Layout.fillWidth: true
        columns: 2
        columnSpacing: 12
        rowSpacing: 8
        Text { text: "Account"; color: Theme.ink2; font: Theme.callout }
        ComboBox {
            Layout.fillWidth: true
            model: flow ? flow.accounts : []
            textRole: "label"
            valueRole: "id"
            currentIndex: flow ? flow.accounts.findIndex(a => a.id === flow.accountId) : -1
            onActivated: flow.accountId = currentValue
        }
        Text { text: "Folder"; color: Theme.ink2; font: Theme.callout }
        ComboBox {
            Layout.fillWidth: true
            model: flow ? flow.folders : []
            textRole: "displayName"
            valueRole: "name"
            currentIndex: flow ? flow.folders.findIndex(f => f.name === flow.mailbox) : -1
            onActivated: flow.mailbox = currentValue
        }
        Text { text: "Older than"; color: Theme.ink2; font: Theme.callout }
        RowLayout {
            spacing: 6
            Repeater {
                model: flow ? flow.yearPresets : []
                VaultButton {
                    required property int modelData
                    compact: true
                    kind: flow && flow.years === modelData ? "primary" : "secondary"
                    text: modelData === 1 ? "1 year" : modelData + " years"
                    onClicked: flow.years = modelData
                }
            }
            TextField {
                objectName: "beforeField"
                Layout.preferredWidth: 120
                text: flow ? flow.beforeText : ""
                placeholderText: "yyyy-mm-dd"
                color: Theme.ink
                font: Theme.callout
                onEditingFinished: flow.beforeText = text
                background: Rectangle {
                    implicitHeight: 24
                    radius: 6
                    color: Theme.panel
                    border.color: flow && flow.years === 0 ? Theme.focus : Theme.ruleStrong
                }
            }
        }
    }

    SafetyNote {
        Layout.fillWidth: true
        visible: flow !== null && flow.gmailNote
        symbol: "info.circle"
        tint: Theme.focus
        title: "Gmail note"
        text: "Deleting from a label only removes the label. To really free space choose “[Gmail]/All Mail”; Gmail then moves the messages to Trash."
    }
    SafetyNote {
        Layout.fillWidth: true
        visible: view.error !== undefined
        symbol: "exclamationmark.triangle"
        tint: Theme.danger
        title: visible ? view.error.title : ""
        text: visible ? view.error.advice : ""
    }

    Repeater {
        model: [
            ["checkmark.shield", "Verified means proven", "A local .eml exists, holds exactly the bytes the server reports, and reads as a complete email."],
            ["arrow.uturn.backward", "Anything doubtful stays", "Missing, partial or changed copies are kept on the server — and listed so you know why."],
            ["keyboard", "You type to confirm", "Release only happens after you type the number of messages. You can stop at any time."]
        ]
        RowLayout {
            required property var modelData
            Layout.fillWidth: true
            spacing: 10
            SymbolIcon { name: modelData[0]; color: Theme.seal; size: 18; Layout.alignment: Qt.AlignTop }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                Text { text: modelData[1]; color: Theme.ink; font: Theme.headline }
                Text { Layout.fillWidth: true; text: modelData[2]; color: Theme.ink2; font: Theme.callout; wrapMode: Text.WordWrap }
            }
        }
    }
    Item { Layout.fillHeight: true }
}
