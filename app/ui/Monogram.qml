import QtQuick
import Quernstead

// A round badge with the sender's initial, in a colour that stays the same for an address.
Rectangle {
    property string name
    property string email
    property int size: 28

    width: size
    height: size
    radius: size / 2
    color: WindowState.monogramColor(email)

    Text {
        anchors.centerIn: parent
        text: WindowState.initial(parent.name, parent.email)
        color: "white"
        font.family: Theme.headline.family
        font.pixelSize: Math.round(parent.size * 0.45)
        font.weight: Font.DemiBold
    }
}
