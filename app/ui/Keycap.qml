import QtQuick
import Quernstead

// Keys drawn as caps, one per key of a combination ("Ctrl", "Shift", "B").
Row {
    property var keys: []
    spacing: 3

    Repeater {
        model: parent.keys
        Rectangle {
            required property string modelData
            width: Math.max(22, label.implicitWidth + 12)
            height: 22
            radius: 5
            color: Theme.raised
            border.color: Theme.ruleStrong
            Rectangle {
                anchors.bottom: parent.bottom
                anchors.horizontalCenter: parent.horizontalCenter
                width: parent.width - 2
                height: 2
                radius: 1
                color: Theme.rule
            }
            Text {
                id: label
                anchors.centerIn: parent
                text: modelData
                color: Theme.ink
                font: Theme.callout
            }
        }
    }
}
