import QtQuick
import QtQuick.Layouts
import Quernstead

// One selectable row of the sidebar: symbol, title and an optional count.
Item {
    id: row
    property string symbol
    property color tint: Theme.ink2
    property string title
    property var count: 0
    property bool caution: false
    property bool selected: false
    property int indent: 0
    property alias hovered: mouse.containsMouse
    signal clicked()
    signal contextMenu(real x, real y)

    implicitHeight: 28
    Layout.fillWidth: true

    Rectangle {
        anchors.fill: parent
        anchors.leftMargin: 8
        anchors.rightMargin: 8
        radius: 6
        color: row.selected ? Theme.selection : mouse.containsMouse ? Theme.hover : "transparent"
    }
    RowLayout {
        anchors.fill: parent
        anchors.leftMargin: 16 + row.indent
        anchors.rightMargin: 16
        spacing: 8
        SymbolIcon {
            name: row.symbol
            color: row.selected ? Theme.focus : row.tint
            size: 15
        }
        Text {
            Layout.fillWidth: true
            text: row.title
            elide: Text.ElideRight
            color: Theme.ink
            font: row.selected ? Theme.headline : Theme.body
        }
        Text {
            visible: row.count > 0
            text: Number(row.count).toLocaleString(Qt.locale(), "f", 0)
            color: row.caution && row.count > 0 ? Theme.caution : Theme.ink3
            font: Theme.caption
        }
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        onClicked: (event) => {
            if (event.button === Qt.RightButton)
                row.contextMenu(event.x, event.y)
            else
                row.clicked()
        }
    }
}
