import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// Free up space, step two: the survey, then every copy checked in sight.
ColumnLayout {
    property var view: ({})
    readonly property bool surveyed: view.hasPlan === true
    spacing: 10

    ColumnLayout {
        visible: !surveyed
        Layout.fillWidth: true
        spacing: 6
        Text { Layout.fillWidth: true; text: view.asking || ""; color: Theme.ink; font: Theme.body; wrapMode: Text.WordWrap }
        ProgressLine { Layout.fillWidth: true }
        Text { text: "Nothing on the server changes until step 3."; color: Theme.ink3; font: Theme.caption }
    }
    SafetyNote {
        Layout.fillWidth: true
        visible: view.error !== undefined
        symbol: "exclamationmark.triangle"
        tint: Theme.danger
        title: visible ? view.error.title : ""
        text: visible ? view.error.advice : ""
    }
    Text {
        visible: surveyed && view.items === 0
        text: (view.nothing || "") + " Nothing was deleted."
        color: Theme.ink
        font: Theme.body
    }
    ColumnLayout {
        visible: surveyed && view.items > 0
        Layout.fillWidth: true
        Layout.fillHeight: true
        spacing: 8
        RowLayout {
            spacing: 14
            Text { text: view.checkedText || ""; color: Theme.ink; font: Theme.headline }
            SymbolIcon { name: "checkmark.shield.fill"; color: Theme.seal; size: 14 }
            Text { text: (view.verified || 0) + " verified"; color: Theme.seal; font: Theme.callout }
            SymbolIcon { name: "arrow.uturn.backward"; color: Theme.caution; size: 14 }
            Text { text: (view.kept || 0) + " kept"; color: Theme.caution; font: Theme.callout }
        }
        ProgressLine { Layout.fillWidth: true; value: view.checked || 0; total: view.items || 0; tint: Theme.seal }
        Text { text: "Each message on the server is matched to its .eml in the vault, byte for byte."; color: Theme.ink2; font: Theme.caption }
        Text { text: "Only messages with a verified copy can leave the server."; color: Theme.ink2; font: Theme.caption }
        SafetyNote {
            Layout.fillWidth: true
            visible: view.unsafe === true
            symbol: "exclamationmark.triangle"
            tint: Theme.danger
            title: "This folder can’t be released safely"
            text: view.unsafeText || ""
        }
        Rectangle {
            objectName: "verifyLedger"
            Layout.fillWidth: true
            Layout.fillHeight: true
            radius: Theme.rCard
            color: Theme.panel
            border.color: Theme.rule
            ListView {
                anchors.fill: parent
                anchors.margins: 10
                clip: true
                spacing: 4
                boundsBehavior: Flickable.StopAtBounds
                ScrollBar.vertical: ScrollBar {}
                model: view.rows || []
                delegate: VerifyRow {
                    required property var modelData
                    width: ListView.view.width
                    row: modelData
                }
            }
        }
    }
    Item { Layout.fillHeight: true; visible: !(surveyed && view.items > 0) }
}
