import QtQuick
import Quernstead

// The rail beside the list.
Item {
    property bool dragging: false
}
