import QtQuick
import Quernstead

// The timeline rail beside the list, with the tip that floats to its left while a month is
// hovered.
Item {
    id: column
    readonly property alias dragging: rail.dragging

    implicitWidth: 84

    TimelineSpine {
        id: rail
        objectName: "spine"
        anchors.fill: parent
        store: Store
        ink: Theme.ink
        ink2: Theme.ink2
        ink3: Theme.ink3
        seal: Theme.seal
        yearFont: Theme.mono

        Accessible.role: Accessible.Slider
        Accessible.name: empty ? "Empty" : "Timeline"
        // Qt Quick has no value text for a custom adjustable item: the value leads the help.
        Accessible.description: (empty ? "" : accessibleValue + ". ")
                                + "Timeline — hover a month, click or drag to travel through the years"
        Accessible.onIncreaseAction: adjust(1)
        Accessible.onDecreaseAction: adjust(-1)
    }

    Rectangle {
        id: tip
        objectName: "spineTip"
        visible: rail.tipVisible
        x: -width - 6
        y: Math.max(4, Math.min(column.height - height - 4, rail.tipY - height / 2))
        width: tipText.implicitWidth + 14
        height: tipText.implicitHeight + 14
        radius: 7
        color: Theme.panel
        border.color: Theme.rule

        Rectangle {
            z: -1
            anchors.fill: parent
            anchors.topMargin: 2
            anchors.bottomMargin: -2
            radius: 8
            color: Qt.rgba(0, 0, 0, Theme.dark ? 0.35 : 0.10)
        }
        Column {
            id: tipText
            anchors.centerIn: parent
            Text { text: rail.tipTitle; color: Theme.ink; font: Theme.callout }
            Text { text: WindowState.count(rail.tipCount, "message"); color: Theme.ink2; font: Theme.caption }
        }
    }
}
