import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// One provider to choose: its symbol, name and what it needs.
AbstractButton {
    id: card
    property string symbol
    property string needs
    hoverEnabled: true
    focusPolicy: Qt.TabFocus
    implicitHeight: 92
    padding: 14

    background: Rectangle {
        radius: Theme.rCard
        color: card.hovered ? Theme.raised : Theme.panel
        border.color: card.visualFocus ? Theme.focus : card.hovered ? Theme.ruleStrong : Theme.rule
        border.width: card.visualFocus ? 2 : 1
        Behavior on border.color { ColorAnimation { duration: Motion.fade } }
    }
    contentItem: ColumnLayout {
        spacing: 4
        SymbolIcon { name: card.symbol; color: Theme.focus; size: 22 }
        Text { text: card.text; color: Theme.ink; font: Theme.headline; Layout.topMargin: 4 }
        Text {
            Layout.fillWidth: true
            text: card.needs
            color: Theme.ink2
            font: Theme.caption
            wrapMode: Text.WordWrap
        }
    }
}
