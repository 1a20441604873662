import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The catalogue card under the header: where the file lies in the vault, its size, and the
// seal that proves (or doubts) the copy.
Rectangle {
    property var message
    readonly property color tint: !message ? Theme.ink2
                                : message.copyKind === "verified" ? Theme.seal
                                : message.copyKind === "differs" ? Theme.caution : Theme.ink2

    implicitHeight: row.implicitHeight + 16
    radius: Theme.rCard
    color: Theme.raised
    border.color: Theme.rule

    RowLayout {
        id: row
        anchors.fill: parent
        anchors.margins: 8
        anchors.leftMargin: 12
        spacing: 10
        Item {
            objectName: "copySeal"
            implicitWidth: 18
            implicitHeight: 18
            SymbolIcon { anchors.centerIn: parent; name: message ? message.copySymbol : ""; color: tint; size: 16 }
            HoverHandler { id: sealHover }
            ToolTip.visible: sealHover.hovered
            ToolTip.delay: 400
            ToolTip.text: message ? message.copyHelp : ""
        }
        Text {
            Layout.fillWidth: true
            text: message ? message.relativeName : ""
            color: Theme.ink2
            font: Theme.mono
            elide: Text.ElideMiddle
        }
        Text { text: message ? message.fileSize : ""; color: Theme.ink3; font: Theme.callout }
        VaultButton {
            objectName: "revealButton"
            kind: "quiet"
            compact: true
            symbol: "arrow.up.right.square"
            help: "Reveal in File Manager (Ctrl+Shift+R)"
            onClicked: Store.revealSelected()
        }
    }
}
