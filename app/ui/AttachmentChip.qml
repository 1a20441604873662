import QtQuick
import QtQuick.Controls
import Quernstead

// One attachment: a click previews a scratch copy with the desktop's default application;
// the button that shows on hover, and the menu, save it.
Rectangle {
    id: chip
    property var attachment
    signal preview()
    signal save()
    readonly property bool hover: area.containsMouse || saveButton.hovered

    implicitWidth: row.implicitWidth + 20
    implicitHeight: 32
    radius: 8
    color: hover ? Theme.hover : Theme.raised
    border.color: Theme.rule

    MouseArea {
        id: area
        anchors.fill: parent
        hoverEnabled: true
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        onClicked: mouse => mouse.button === Qt.RightButton ? menu.popup() : chip.preview()
        ToolTip.visible: containsMouse && !saveButton.hovered
        ToolTip.delay: 600
        ToolTip.text: "Click to preview with Preview"
    }
    Row {
        id: row
        anchors.verticalCenter: parent.verticalCenter
        x: 10
        spacing: 6
        SymbolIcon { name: "paperclip"; color: Theme.ink2; size: 14; anchors.verticalCenter: parent.verticalCenter }
        Text { text: attachment.filename; color: Theme.ink; font: Theme.callout; anchors.verticalCenter: parent.verticalCenter }
        Text { text: attachment.size; color: Theme.ink3; font: Theme.caption; anchors.verticalCenter: parent.verticalCenter }
        VaultButton {
            id: saveButton
            kind: "quiet"
            compact: true
            symbol: "arrow.down.to.line"
            help: "Save attachment…"
            opacity: chip.hover ? 1 : 0
            anchors.verticalCenter: parent.verticalCenter
            onClicked: chip.save()
        }
    }
    Menu {
        id: menu
        MenuItem { text: "Preview"; onTriggered: chip.preview() }
        MenuItem { text: "Save attachment…"; onTriggered: chip.save() }
    }
}
