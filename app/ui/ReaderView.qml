import QtQuick
import QtQuick.Layouts
import Quernstead

// The third column. Until the reader is built, a message shows its header card; with no open
// message the empty state invites a pick.
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

    ColumnLayout {
        visible: !!message
        anchors.fill: parent
        anchors.margins: 24
        spacing: 12

        Text {
            Layout.fillWidth: true
            text: message ? (message.subject.length > 0 ? message.subject : "(no subject)") : ""
            color: Theme.ink
            font: Theme.title
            wrapMode: Text.WordWrap
        }
        RowLayout {
            spacing: 10
            Monogram {
                name: message ? message.sender : ""
                email: message ? message.fromEmail : ""
                size: 34
            }
            ColumnLayout {
                spacing: 0
                Text { text: message ? message.sender : ""; color: Theme.ink; font: Theme.headline }
                Text { text: message ? message.fromEmail : ""; color: Theme.ink2; font: Theme.callout }
            }
        }
        Rectangle {
            Layout.fillWidth: true
            implicitHeight: card.implicitHeight + 20
            radius: Theme.rCard
            color: Theme.raised
            border.color: Theme.rule
            RowLayout {
                id: card
                anchors.fill: parent
                anchors.margins: 10
                spacing: 8
                SymbolIcon {
                    name: message ? message.copySymbol : ""
                    color: Theme.seal
                    size: 16
                }
                Text {
                    Layout.fillWidth: true
                    text: message ? message.copyHelp : ""
                    color: Theme.ink2
                    font: Theme.callout
                    wrapMode: Text.WordWrap
                }
            }
        }
        Item { Layout.fillHeight: true }
    }
}
