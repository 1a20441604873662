import QtQuick
import QtQuick.Layouts
import Quernstead

// Settings › About: the program, its version and what it promises.
Item {
    objectName: "settingsAbout"

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 64, 420)
        spacing: 10

        SymbolIcon {
            Layout.alignment: Qt.AlignHCenter
            name: "checkmark.seal"
            color: Theme.seal
            size: 52
        }
        Text { Layout.alignment: Qt.AlignHCenter; text: "Quernstead"; color: Theme.ink; font: Theme.title }
        Text { Layout.alignment: Qt.AlignHCenter; text: VaultSettings.version; color: Theme.ink2; font: Theme.callout }
        Text {
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 6
            text: "An archive vault for your email."
            color: Theme.ink
            font: Theme.body
        }
        Text {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
            text: "Plain files, offline reading, nothing sent anywhere but your own mail server."
            color: Theme.ink2
            font: Theme.body
        }
        RowLayout {
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 10
            spacing: 8
            // A build without an update feed has no updater activity at all.
            VaultButton {
                objectName: "checkForUpdates"
                text: "Check for Updates…"
                enabled: Updater.active
                onClicked: Updater.check(true)
            }
            VaultButton { objectName: "showWelcomeGuide"; text: "Show Welcome Guide"; onClicked: Onboarding.open() }
        }
    }
}
