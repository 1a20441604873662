import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// A titled text field of a sheet; `text` is the field's, `edited` fires on every keystroke.
ColumnLayout {
    property string title
    property alias text: field.text
    property alias placeholder: field.placeholderText
    property alias field: field
    property bool secret: false
    signal edited(string text)
    spacing: 4

    Text { text: parent.title; color: Theme.ink2; font: Theme.callout }
    TextField {
        id: field
        Layout.fillWidth: true
        echoMode: parent.secret ? TextInput.Password : TextInput.Normal
        color: Theme.ink
        placeholderTextColor: Theme.ink3
        selectionColor: Theme.selection
        selectedTextColor: Theme.ink
        font: Theme.body
        onTextEdited: parent.edited(text)
        background: Rectangle {
            implicitHeight: 30
            radius: 6
            color: Theme.panel
            border.color: field.activeFocus ? Theme.focus : Theme.ruleStrong
            border.width: field.activeFocus ? 2 : 1
        }
    }
}
