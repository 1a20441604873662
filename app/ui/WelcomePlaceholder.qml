import QtQuick
import QtQuick.Layouts
import Quernstead

// Shown in place of the columns while the vault is empty and no account is set up.
Rectangle {
    color: Theme.paper

    ColumnLayout {
        anchors.centerIn: parent
        spacing: 14
        SymbolIcon {
            Layout.alignment: Qt.AlignHCenter
            name: "checkmark.shield.fill"
            color: Theme.seal
            size: 56
        }
        Text {
            Layout.alignment: Qt.AlignHCenter
            text: "Quernstead"
            color: Theme.ink
            font: Theme.display
        }
        Text {
            Layout.alignment: Qt.AlignHCenter
            text: "An archive vault for your email."
            color: Theme.ink2
            font: Theme.body
        }
        VaultButton {
            objectName: "welcomeAddAccount"
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 8
            kind: "primary"
            symbol: "plus"
            text: "Add Account"
            onClicked: Store.showAddAccount = true
        }
    }
}
