import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// One message of the list: the sender's monogram, name and date, the subject, one line of the
// text, and glyphs for trackers and attachments; a caution mark when it looks suspicious.
Item {
    id: row
    property string path
    property string sender
    property string fromEmail
    property string subject
    property string snippet
    property string rowDate
    property int attachments: 0
    property int trackers: 0
    property bool suspicious: false
    property bool selected: false
    signal clicked()
    // One menu serves the whole list: a menu per row would be built with every row.
    signal menuRequested()

    implicitHeight: 66

    Rectangle {
        anchors.fill: parent
        anchors.leftMargin: 6
        anchors.rightMargin: 6
        anchors.topMargin: 1
        anchors.bottomMargin: 1
        radius: 7
        color: row.selected ? Theme.selection : mouse.containsMouse ? Theme.hover : "transparent"
    }

    RowLayout {
        anchors.fill: parent
        anchors.leftMargin: 16
        anchors.rightMargin: 14
        spacing: 10

        Monogram {
            Layout.alignment: Qt.AlignTop
            Layout.topMargin: 10
            name: row.sender
            email: row.fromEmail
            size: 30
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 1
            RowLayout {
                Layout.fillWidth: true
                Text {
                    Layout.fillWidth: true
                    text: row.sender
                    color: Theme.ink
                    font: Theme.headline
                    elide: Text.ElideRight
                }
                Text { text: row.rowDate; color: Theme.ink3; font: Theme.caption }
            }
            RowLayout {
                Layout.fillWidth: true
                spacing: 5
                SymbolIcon {
                    visible: row.suspicious
                    name: "exclamationmark.shield.fill"
                    color: Theme.caution
                    size: 13
                }
                Text {
                    Layout.fillWidth: true
                    text: row.subject.length > 0 ? row.subject : "(no subject)"
                    color: Theme.ink
                    font: Theme.body
                    elide: Text.ElideRight
                }
                SymbolIcon {
                    id: trackerGlyph
                    visible: row.trackers > 0
                    name: "eye.slash"
                    color: Theme.ink3
                    size: 13
                    HoverHandler { id: trackerHover }
                    ToolTip.visible: trackerHover.hovered
                    ToolTip.text: WindowState.count(row.trackers, "tracker") + " blocked"
                }
                SymbolIcon {
                    visible: row.attachments > 0
                    name: "paperclip"
                    color: Theme.ink3
                    size: 13
                    HoverHandler { id: clipHover }
                    ToolTip.visible: clipHover.hovered
                    ToolTip.text: WindowState.count(row.attachments, "attachment")
                }
            }
            Text {
                Layout.fillWidth: true
                text: row.snippet
                color: Theme.ink2
                font: Theme.callout
                elide: Text.ElideRight
                maximumLineCount: 1
            }
        }
    }

    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        onClicked: (event) => {
            if (event.button === Qt.RightButton)
                row.menuRequested()
            else
                row.clicked()
        }
    }
}
