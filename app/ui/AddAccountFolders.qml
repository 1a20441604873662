import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The add-account sheet's last step: the server's folders to keep.
ColumnLayout {
    property AddAccountFlow flow
    spacing: 10

    Text {
        objectName: "folderCount"
        text: flow ? flow.folderCount : ""
        color: Theme.ink2
        font: Theme.callout
    }
    Rectangle {
        Layout.fillWidth: true
        Layout.fillHeight: true
        radius: Theme.rCard
        color: Theme.panel
        border.color: Theme.rule
        ListView {
            anchors.fill: parent
            anchors.margins: 6
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {}
            model: flow ? flow.mailboxes : []
            delegate: CheckBox {
                required property var modelData
                width: ListView.view.width
                text: modelData.displayName
                checked: modelData.chosen
                font: Theme.body
                palette.text: Theme.ink
                palette.windowText: Theme.ink
                onToggled: flow.setChosen(modelData.name, checked)
            }
        }
    }
    SafetyNote {
        Layout.fillWidth: true
        visible: flow && flow.error !== undefined && flow.error !== null
        symbol: "exclamationmark.triangle"
        tint: Theme.danger
        title: visible ? flow.error.title : ""
        text: visible ? flow.error.advice : ""
    }
}
