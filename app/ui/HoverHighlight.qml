import QtQuick
import Quernstead

// A soft fill under the pointer.
Rectangle {
    property bool hovered: false
    property real lift: 0
    property real cornerRadius: 6

    radius: cornerRadius
    color: hovered ? Theme.hover : "transparent"
    scale: hovered ? 1 + lift : 1
    Behavior on color { ColorAnimation { duration: Motion.fade } }
}
