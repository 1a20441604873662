import QtQuick
import QtQuick.Layouts
import Quernstead

// A centred empty state: symbol, title, text lines and an optional action.
ColumnLayout {
    property string symbol
    property string title
    property var texts: []
    property string actionTitle
    property bool actionEnabled: true
    signal action()

    spacing: 8

    SymbolIcon {
        Layout.alignment: Qt.AlignHCenter
        name: parent.symbol
        color: Theme.ink3
        size: 36
    }
    Text {
        Layout.alignment: Qt.AlignHCenter
        Layout.fillWidth: true
        Layout.topMargin: 4
        wrapMode: Text.WordWrap
        text: parent.title
        color: Theme.ink
        font: Theme.title
        horizontalAlignment: Text.AlignHCenter
    }
    Repeater {
        model: parent.texts
        Text {
            required property string modelData
            Layout.alignment: Qt.AlignHCenter
            Layout.fillWidth: true
            text: modelData
            color: Theme.ink2
            font: Theme.body
            wrapMode: Text.WordWrap
            horizontalAlignment: Text.AlignHCenter
        }
    }
    VaultButton {
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 6
        visible: parent.actionTitle.length > 0
        text: parent.actionTitle
        kind: "secondary"
        enabled: parent.actionEnabled
        onClicked: parent.action()
    }
}
