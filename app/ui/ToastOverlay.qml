import QtQuick
import Quernstead

// The passing notice: a capsule at the bottom centre. A tap dismisses it.
Item {
    id: overlay
    readonly property var toast: Store.toast
    property var shown: null

    onToastChanged: if (toast) shown = toast

    Rectangle {
        id: capsule
        objectName: "toast"
        anchors.horizontalCenter: parent.horizontalCenter
        y: overlay.toast ? overlay.height - height - 24 : overlay.height + 12
        opacity: overlay.toast ? 1 : 0
        visible: opacity > 0
        width: row.implicitWidth + 28
        height: row.implicitHeight + 18
        radius: height / 2
        color: Theme.panel
        border.color: Qt.rgba(Theme.ruleStrong.r, Theme.ruleStrong.g, Theme.ruleStrong.b,
                              Theme.ruleStrong.a * 0.5)

        Behavior on y { enabled: !Motion.reduced; NumberAnimation { duration: Motion.spring; easing.type: Easing.OutBack; easing.overshoot: 0.8 } }
        Behavior on opacity { NumberAnimation { duration: Motion.fade } }

        // A soft shadow of radius ten, drawn as widening rings.
        Repeater {
            model: 5
            Rectangle {
                required property int index
                z: -1
                anchors.centerIn: parent
                width: capsule.width + index * 4
                height: capsule.height + index * 4
                radius: height / 2
                color: "transparent"
                border.width: 2
                border.color: Qt.rgba(0, 0, 0, Theme.dark ? 0.10 - index * 0.018 : 0.05 - index * 0.009)
                anchors.verticalCenterOffset: 2
            }
        }

        Row {
            id: row
            anchors.centerIn: parent
            spacing: 8
            SymbolIcon {
                id: symbol
                anchors.verticalCenter: parent.verticalCenter
                name: overlay.shown ? overlay.shown.symbol : ""
                color: overlay.shown ? Theme.named(overlay.shown.tint) : Theme.ink
                size: 16
                SequentialAnimation on scale {
                    id: bounce
                    running: false
                    NumberAnimation { to: 1.3; duration: 120; easing.type: Easing.OutQuad }
                    NumberAnimation { to: 1.0; duration: 220; easing.type: Easing.OutBounce }
                }
            }
            Text {
                objectName: "toastText"
                anchors.verticalCenter: parent.verticalCenter
                text: overlay.shown ? overlay.shown.text : ""
                color: Theme.ink
                font: Theme.callout
            }
        }
        MouseArea { anchors.fill: parent; onClicked: Store.dismissToast() }
    }

    Connections {
        target: Store
        function onToastChanged() {
            if (Store.toast && !Motion.reduced)
                bounce.restart()
        }
    }
}
