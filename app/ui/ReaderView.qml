import QtQuick
import Quernstead

// The third column: the open message, or an invitation to pick one.
Rectangle {
    color: Theme.panel
    readonly property var message: Store.openMessage

    VaultEmpty {
        objectName: "readerEmpty"
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 360)
        visible: !message
        symbol: "envelope.open"
        title: "Pick a message"
        texts: ["Messages open here with remote images and trackers switched off."]
        actionTitle: Store.visibleCount > 0 ? "Open the Newest" : ""
        onAction: Store.selectNext(1)
    }

    MessageReader {
        objectName: "messageReader"
        anchors.fill: parent
        visible: !!message
        message: parent.message
    }
}
