import QtQuick
import QtQuick.Layouts
import Quernstead

// A tinted card with a symbol, a title and a text.
Rectangle {
    property string symbol
    property string title
    property string text
    property color tint: Theme.caution
    default property alias extra: extras.data

    implicitHeight: row.implicitHeight + 20
    radius: Theme.rCard
    color: Qt.rgba(tint.r, tint.g, tint.b, Theme.dark ? 0.14 : 0.09)
    border.color: Qt.rgba(tint.r, tint.g, tint.b, 0.35)

    RowLayout {
        id: row
        anchors.fill: parent
        anchors.margins: 10
        spacing: 10
        SymbolIcon {
            Layout.alignment: Qt.AlignTop
            name: symbol
            color: tint
            size: 18
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2
            Text { text: title; color: Theme.ink; font: Theme.headline; Layout.fillWidth: true; wrapMode: Text.WordWrap }
            Text { text: parent.parent.parent.text; color: Theme.ink2; font: Theme.callout; Layout.fillWidth: true; wrapMode: Text.WordWrap; visible: text.length > 0 }
            Item { id: extras; Layout.fillWidth: true; implicitHeight: childrenRect.height; visible: children.length > 0 }
        }
    }
}
