import QtQuick
import Quernstead

// The mark of proof: a shield in the seal colour, with an optional text beside it.
Row {
    property string text
    property int size: 16
    spacing: 6

    SymbolIcon {
        name: "checkmark.shield.fill"
        color: Theme.seal
        size: parent.size
        anchors.verticalCenter: parent.verticalCenter
    }
    Text {
        visible: parent.text.length > 0
        text: parent.text
        color: Theme.seal
        font: Theme.headline
        anchors.verticalCenter: parent.verticalCenter
    }
}
