import QtQuick
import QtQuick.Layouts
import Quernstead

// A sheet's head: the eyebrow above the title, and an optional subtitle.
ColumnLayout {
    property string eyebrow
    property string title
    property string subtitle
    spacing: 4

    SmallCaps { text: parent.eyebrow; color: Theme.ink3 }
    Text {
        objectName: "sheetTitle"
        Layout.fillWidth: true
        text: parent.title
        color: Theme.ink
        font: Theme.title
        wrapMode: Text.WordWrap
    }
    Text {
        Layout.fillWidth: true
        visible: text.length > 0
        text: parent.subtitle
        color: Theme.ink2
        font: Theme.body
        wrapMode: Text.WordWrap
    }
}
