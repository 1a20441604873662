import QtQuick
import QtQuick.Layouts
import Quernstead

// A titled group of the Settings window, on a card.
ColumnLayout {
    id: section
    property string title
    default property alias content: card.data
    spacing: 6
    Layout.fillWidth: true

    SmallCaps { text: section.title }
    Rectangle {
        Layout.fillWidth: true
        implicitHeight: card.implicitHeight + 24
        radius: Theme.rCard
        color: Theme.panel
        border.color: Theme.rule
        ColumnLayout {
            id: card
            anchors.fill: parent
            anchors.margins: 12
            spacing: 8
        }
    }
}
