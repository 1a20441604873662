import QtQuick
import QtQuick.Controls
import Quernstead

ApplicationWindow {
    id: window
    title: "Quernstead"
    width: 1280
    height: 800
    color: Theme.paper

    Label {
        anchors.centerIn: parent
        text: Store.vaultSummary
        color: Theme.ink
        font: Theme.body
    }
}
