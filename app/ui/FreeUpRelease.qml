import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// Free up space, step three: what leaves, and the typed confirmation.
ColumnLayout {
    property FreeUpFlow flow
    property var view: ({})
    spacing: 10

    Leader { Layout.fillWidth: true; label: "Messages to release"; value: String(view.verified || 0) }
    Leader { Layout.fillWidth: true; label: "Space freed on the server"; value: view.spaceFreed || "" }
    Leader { Layout.fillWidth: true; label: "Older than"; value: view.olderThan || "" }
    Leader { Layout.fillWidth: true; label: "Kept on the server"; value: view.keptLine || "" }
    Leader { Layout.fillWidth: true; label: "Copies in your vault"; value: String(view.verified || 0) }

    Text {
        Layout.fillWidth: true
        Layout.topMargin: 6
        textFormat: Text.StyledText
        text: view.releaseWords || ""
        color: Theme.ink
        font: Theme.body
        wrapMode: Text.WordWrap
    }
    TextField {
        objectName: "confirmField"
        Layout.fillWidth: true
        text: flow ? flow.confirmation : ""
        onTextEdited: flow.confirmation = text
        enabled: !view.busy
        color: Theme.ink
        font: Theme.body
        background: Rectangle {
            implicitHeight: 30
            radius: 6
            color: Theme.panel
            border.color: view.canRelease ? Theme.danger : Theme.ruleStrong
        }
    }
    ColumnLayout {
        visible: view.released !== undefined
        Layout.fillWidth: true
        spacing: 4
        Text {
            text: visible && view.released.done === view.released.total && !view.busy ? "Released" : "Releasing"
            color: Theme.ink2
            font: Theme.callout
        }
        ProgressLine {
            Layout.fillWidth: true
            value: view.released ? view.released.done : 0
            total: view.released ? view.released.total : 0
            tint: Theme.danger
        }
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
        visible: view.result !== undefined
        Layout.fillWidth: true
        text: view.result || ""
        color: Theme.ink2
        font: Theme.callout
        wrapMode: Text.WordWrap
    }
    Item { Layout.fillHeight: true }
}
