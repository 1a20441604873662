import QtQuick
import Quernstead

// Numbered steps with the current one marked.
Row {
    property var steps: []
    property int current: 0
    spacing: 14

    Repeater {
        model: parent.steps
        Row {
            required property int index
            required property string modelData
            readonly property bool done: index < current
            readonly property bool here: index === current
            spacing: 6
            Rectangle {
                width: 20
                height: 20
                radius: 10
                color: here ? Theme.focus : done ? Theme.seal : "transparent"
                border.color: here || done ? "transparent" : Theme.ruleStrong
                anchors.verticalCenter: parent.verticalCenter
                Text {
                    anchors.centerIn: parent
                    text: index + 1
                    color: here || done ? "white" : Theme.ink3
                    font: Theme.label
                }
            }
            Text {
                text: modelData
                color: here ? Theme.ink : Theme.ink3
                font: here ? Theme.headline : Theme.callout
                anchors.verticalCenter: parent.verticalCenter
            }
        }
    }
}
