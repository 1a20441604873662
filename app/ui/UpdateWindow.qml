import QtQuick
import QtQuick.Controls
import Quernstead

// The Software Update window: comes forward when the updater has something to say or the
// user checks by hand.
Window {
    id: updateWindow
    objectName: "updateWindow"
    title: "Software Update"
    width: 520
    height: 340
    minimumWidth: 440
    minimumHeight: 240
    color: Theme.paper
    palette.window: Theme.paper
    palette.windowText: Theme.ink
    palette.base: Theme.raised
    palette.text: Theme.ink
    palette.button: Theme.raised
    palette.buttonText: Theme.ink
    palette.highlight: Theme.focus

    Connections {
        target: Updater
        function onWindowRequested() { updateWindow.show(); updateWindow.raise(); updateWindow.requestActivate() }
    }

    UpdateView {
        anchors.fill: parent
        onCloseRequested: updateWindow.close()
    }
}
