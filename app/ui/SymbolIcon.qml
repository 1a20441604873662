import QtQuick
import Quernstead

// A symbol by its name, drawn in one colour.
Image {
    property string name
    property color color: Theme.ink2
    property int size: 16

    width: size
    height: size
    source: name.length > 0 ? WindowState.symbol(name, color) : ""
    sourceSize: Qt.size(size * Screen.devicePixelRatio, size * Screen.devicePixelRatio)
    fillMode: Image.PreserveAspectFit
    smooth: true
}
