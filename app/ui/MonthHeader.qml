import QtQuick
import QtQuick.Layouts
import Quernstead

// A month's title and its count, above its rows (and pinned at the top while scrolling).
Rectangle {
    property string title
    property int count: 0

    implicitHeight: 44
    color: Theme.paper

    RowLayout {
        anchors.fill: parent
        anchors.leftMargin: 18
        anchors.rightMargin: 14
        anchors.topMargin: 8
        Text { text: title; color: Theme.ink; font: Theme.month }
        Item { Layout.fillWidth: true }
        Text { text: WindowState.count(count, "message"); color: Theme.ink3; font: Theme.caption }
    }
    Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Theme.rule }
}
