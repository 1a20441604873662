import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The add-account sheet's sign-in step: the fields on the left, how to get an app password on
// the right, and what went wrong under the fields.
RowLayout {
    id: page
    property AddAccountFlow flow
    readonly property var preset: flow ? flow.preset : ({})
    spacing: 18

    Flickable {
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.preferredWidth: 1
        contentHeight: fields.implicitHeight
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {}

        ColumnLayout {
            id: fields
            width: parent.width
            spacing: 10

            SheetField {
                objectName: "labelField"
                Layout.fillWidth: true
                title: "Name in the sidebar"
                placeholder: page.preset.name || ""
                text: flow ? flow.label : ""
                onEdited: value => flow.label = value
            }
            SheetField {
                objectName: "usernameField"
                Layout.fillWidth: true
                title: "Email address"
                placeholder: page.preset.emailPrompt || ""
                text: flow ? flow.username : ""
                onEdited: value => flow.username = value
            }
            RowLayout {
                visible: page.preset.custom === true
                Layout.fillWidth: true
                spacing: 8
                SheetField {
                    objectName: "hostField"
                    Layout.fillWidth: true
                    title: "IMAP server"
                    placeholder: "imap.example.com"
                    text: flow ? flow.host : ""
                    onEdited: value => flow.host = value
                }
                SheetField {
                    objectName: "portField"
                    Layout.preferredWidth: 80
                    title: "Port"
                    placeholder: "993"
                    text: flow ? flow.port : ""
                    field.validator: IntValidator { bottom: 1; top: 65535 }
                    onEdited: value => flow.port = value
                }
            }
            RowLayout {
                objectName: "plaintextRow"
                visible: flow !== null && flow.offersPlaintext
                spacing: 6
                SymbolIcon { name: "exclamationmark.triangle"; color: Theme.caution; size: 14 }
                Switch {
                    objectName: "plaintextSwitch"
                    text: "Unencrypted (local test server only)"
                    font: Theme.callout
                    palette.windowText: Theme.ink
                    checked: flow ? flow.plaintext : false
                    onToggled: flow.plaintext = checked
                }
            }
            SheetField {
                objectName: "passwordField"
                Layout.fillWidth: true
                title: page.preset.passwordTitle || ""
                placeholder: "xxxx xxxx xxxx xxxx"
                secret: true
                text: flow ? flow.password : ""
                onEdited: value => flow.password = value
                field.onAccepted: flow.connectToServer()
            }
            SafetyNote {
                objectName: "signInError"
                Layout.fillWidth: true
                Layout.topMargin: 4
                visible: flow !== null && flow.error !== undefined && flow.error !== null
                symbol: "exclamationmark.triangle"
                tint: Theme.danger
                title: visible ? flow.error.title : ""
                text: visible ? flow.error.advice : ""
            }
            RowLayout {
                Layout.fillWidth: true
                Layout.topMargin: 4
                spacing: 8
                SymbolIcon { name: "lock"; color: Theme.seal; size: 14; Layout.alignment: Qt.AlignTop }
                Text {
                    Layout.fillWidth: true
                    text: "Your password stays in this computer’s keyring and is sent to nobody but your mail provider. Quernstead only reads — it never changes mail on the server unless you use Free Up Space."
                    color: Theme.ink2
                    font: Theme.caption
                    wrapMode: Text.WordWrap
                }
            }
        }
    }

    Rectangle {
        Layout.alignment: Qt.AlignTop
        Layout.preferredHeight: Math.min(help.implicitHeight + 28, page.height)
        Layout.preferredWidth: 1
        Layout.fillWidth: true
        radius: Theme.rCard
        color: Theme.panel
        border.color: Theme.rule

        Flickable {
            anchors.fill: parent
            anchors.margins: 14
            contentHeight: help.implicitHeight
            clip: true
            boundsBehavior: Flickable.StopAtBounds

            ColumnLayout {
                id: help
                width: parent.width
                spacing: 8
                SmallCaps { text: page.preset.helpTitle || "" }
                Repeater {
                    model: page.preset.steps || []
                    RowLayout {
                        required property int index
                        required property string modelData
                        Layout.fillWidth: true
                        spacing: 8
                        Text {
                            Layout.alignment: Qt.AlignTop
                            text: (index + 1) + "."
                            color: Theme.focus
                            font: Theme.headline
                        }
                        Text {
                            Layout.fillWidth: true
                            text: modelData
                            color: Theme.ink
                            font: Theme.callout
                            wrapMode: Text.WordWrap
                        }
                    }
                }
                VaultButton {
                    visible: (page.preset.helpURL || "").length > 0
                    compact: true
                    symbol: "arrow.up.right.square"
                    text: page.preset.helpButton || ""
                    onClicked: Qt.openUrlExternally(page.preset.helpURL)
                }
                RowLayout {
                    Layout.fillWidth: true
                    Layout.topMargin: 6
                    visible: (page.preset.note || "").length > 0
                    spacing: 8
                    SymbolIcon { name: "info.circle"; color: Theme.focus; size: 14; Layout.alignment: Qt.AlignTop }
                    Text {
                        Layout.fillWidth: true
                        text: page.preset.note || ""
                        color: Theme.ink2
                        font: Theme.caption
                        wrapMode: Text.WordWrap
                    }
                }
            }
        }
    }
}
