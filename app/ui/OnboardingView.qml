import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The welcome guide: four pages with Next, Back and dots. It opens at the first launch and
// from Help or Settings; the last page's button goes on to adding an account.
Popup {
    id: guide
    objectName: "onboarding"
    property int page: 0
    property bool forward: true
    readonly property var current: Onboarding.pages[page]
    readonly property bool last: page === Onboarding.pages.length - 1

    parent: Overlay.overlay
    anchors.centerIn: parent
    width: 520
    height: 420
    modal: true
    visible: Onboarding.visible
    closePolicy: Popup.CloseOnEscape
    onClosed: Onboarding.finish()
    onAboutToShow: page = 0
    padding: 28
    background: Rectangle { color: Theme.panel; radius: Theme.rCard; border.color: Theme.rule }

    // Pages slide in from the side they come from; under reduced motion they just change.
    onPageChanged: slideIn.restart()
    NumberAnimation {
        id: slideIn
        target: slide
        property: "x"
        from: Motion.reduced ? 0 : (guide.forward ? 24 : -24)
        to: 0
        duration: Motion.reduced ? 0 : Motion.spring
        easing.type: Easing.OutCubic
    }

    Connections {
        target: Commands
        function onWelcomeRequested() { Onboarding.open() }
    }

    contentItem: ColumnLayout {
        spacing: 14

        ColumnLayout {
            id: body
            objectName: "onboardingPage"
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 12
            transform: Translate { id: slide }
            SymbolIcon {
                Layout.alignment: Qt.AlignHCenter
                name: guide.current.symbol
                color: Theme.focus
                size: 44
            }
            Text {
                Layout.alignment: Qt.AlignHCenter
                text: guide.current.title
                color: Theme.ink
                font: Theme.title
            }
            Text {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.WordWrap
                text: guide.current.text
                color: Theme.ink2
                font: Theme.body
            }
            Repeater {
                model: guide.current.keys
                RowLayout {
                    required property var modelData
                    Layout.fillWidth: true
                    Layout.leftMargin: 40
                    Layout.rightMargin: 40
                    Text { text: modelData.label; color: Theme.ink; font: Theme.callout; Layout.fillWidth: true }
                    Repeater {
                        model: modelData.caps
                        Keycap { objectName: "onboardingKeycap"; required property var modelData; keys: modelData }
                    }
                }
            }
            Text {
                visible: text.length > 0
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.WordWrap
                text: guide.current.note
                color: Theme.ink3
                font: Theme.callout
            }
            Item { Layout.fillHeight: true }
        }

        RowLayout {
            Layout.fillWidth: true
            VaultButton {
                objectName: "onboardingBack"
                text: "Back"
                kind: "quiet"
                enabled: guide.page > 0
                onClicked: { guide.forward = false; guide.page -= 1 }
            }
            Item { Layout.fillWidth: true }
            Row {
                spacing: 6
                Repeater {
                    model: Onboarding.pages.length
                    Rectangle {
                        required property int index
                        width: 7; height: 7; radius: 3.5
                        color: index === guide.page ? Theme.focus : Theme.ruleStrong
                    }
                }
            }
            Item { Layout.fillWidth: true }
            VaultButton {
                objectName: "onboardingNext"
                text: "Next"
                kind: "primary"
                onClicked: {
                    if (guide.last) {
                        Onboarding.connectAccount()
                    } else {
                        guide.forward = true
                        guide.page += 1
                    }
                }
            }
        }
    }
}
