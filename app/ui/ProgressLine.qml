import QtQuick
import Quernstead

// A thin progress bar; with no total it runs as an indeterminate sweep.
Rectangle {
    property real value: 0
    property real total: 0
    property color tint: Theme.focus

    implicitHeight: 3
    radius: height / 2
    color: Theme.rule
    clip: true

    Rectangle {
        visible: parent.total > 0
        width: parent.total > 0 ? parent.width * Math.min(1, parent.value / parent.total) : 0
        height: parent.height
        radius: parent.radius
        color: parent.tint
        Behavior on width { NumberAnimation { duration: Motion.snappy } }
    }
    Rectangle {
        id: sweep
        visible: parent.total <= 0
        width: parent.width / 3
        height: parent.height
        radius: parent.radius
        color: parent.tint
        NumberAnimation on x {
            running: sweep.visible && !Motion.reduced
            from: -sweep.width
            to: sweep.parent.width
            duration: 1200
            loops: Animation.Infinite
        }
    }
}
