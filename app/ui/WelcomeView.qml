import QtQuick
import QtQuick.Layouts
import Quernstead

// Shown in place of the columns while the vault has no accounts: the seal, the promises
// fading in one after another (at once under reduced motion), and the way in.
Rectangle {
    id: welcome
    objectName: "welcomeView"
    color: Theme.paper
    property bool appeared: false
    Component.onCompleted: appeared = true

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 64, 560)
        spacing: 12

        Seal {
            Layout.alignment: Qt.AlignHCenter
            size: 56
        }
        Text {
            Layout.alignment: Qt.AlignHCenter
            text: "Quernstead"
            color: Theme.ink
            font: Theme.display
        }
        ColumnLayout {
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 6
            spacing: 8
            Repeater {
                model: Onboarding.promises
                RowLayout {
                    required property string modelData
                    required property int index
                    spacing: 10
                    opacity: welcome.appeared ? 1 : 0
                    Behavior on opacity {
                        SequentialAnimation {
                            PauseAnimation { duration: Motion.reduced ? 0 : index * 70 }
                            NumberAnimation { duration: Motion.reduced ? Motion.fade : Motion.spring }
                        }
                    }
                    SymbolIcon { name: "checkmark"; color: Theme.seal; size: 15 }
                    Text { text: modelData; color: Theme.ink; font: Theme.body }
                }
            }
        }
        VaultButton {
            objectName: "welcomeAddAccount"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 14
            kind: "primary"
            symbol: "plus"
            text: "Add a Mail Account"
            onClicked: Store.showAddAccount = true
        }
        Text {
            Layout.fillWidth: true
            Layout.topMargin: 4
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
            text: Onboarding.promiseNote
            color: Theme.ink3
            font: Theme.caption
        }
    }
}
