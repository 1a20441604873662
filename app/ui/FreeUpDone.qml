import QtQuick
import QtQuick.Layouts
import Quernstead

// Free up space, the end: the summary, and what stayed on the server and why.
ColumnLayout {
    property var view: ({})
    property bool showKept: false
    spacing: 10

    SymbolIcon {
        Layout.alignment: Qt.AlignHCenter
        name: "checkmark.shield.fill"
        color: Theme.seal
        size: 40
        NumberAnimation on scale {
            running: parent.visible && !Motion.reduced
            from: 0.6
            to: 1
            duration: Motion.spring
            easing.type: Easing.OutBack
        }
    }
    Text {
        Layout.fillWidth: true
        text: view.result || ""
        color: Theme.ink
        font: Theme.headline
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
    }
    Text {
        Layout.fillWidth: true
        visible: (view.keptSentence || "").length > 0
        text: view.keptSentence || ""
        color: Theme.ink2
        font: Theme.callout
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
    }
    VaultButton {
        visible: (view.kept || 0) > 0
        kind: "quiet"
        symbol: "chevron.right"
        text: view.keptTitle || ""
        onClicked: parent.showKept = !parent.showKept
    }
    ColumnLayout {
        visible: parent.showKept && (view.kept || 0) > 0
        Layout.fillWidth: true
        spacing: 4
        RowLayout {
            spacing: 10
            Item { width: 13 }
            SmallCaps { text: "Received"; Layout.preferredWidth: 96 }
            SmallCaps { text: "Size"; Layout.preferredWidth: 70 }
            SmallCaps { text: "Vault copy" }
        }
        Repeater {
            model: view.keptRows || []
            VerifyRow {
                required property var modelData
                Layout.fillWidth: true
                row: modelData
            }
        }
    }
    Item { Layout.fillHeight: true }
}
