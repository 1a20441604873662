import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The Settings window: General, Accounts and About, one tab at a time.
Window {
    id: settingsWindow
    objectName: "settingsWindow"
    title: "Settings"
    width: 600
    // Tall enough for General down to its updates; the rest scrolls.
    height: 680
    minimumWidth: 520
    minimumHeight: 440
    color: Theme.paper
    palette.window: Theme.paper
    palette.windowText: Theme.ink
    palette.base: Theme.raised
    palette.text: Theme.ink
    palette.button: Theme.raised
    palette.buttonText: Theme.ink
    palette.highlight: Theme.focus
    palette.mid: Theme.ruleStrong
    palette.dark: Theme.ink2
    palette.light: Theme.raised
    property int tab: 0

    readonly property var tabs: [
        { title: "General", symbol: "gearshape" },
        { title: "Accounts", symbol: "person.2" },
        { title: "About", symbol: "info.circle" }
    ]

    Connections {
        target: Commands
        function onSettingsRequested() { settingsWindow.show(); settingsWindow.raise(); settingsWindow.requestActivate() }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Rectangle {
            Layout.fillWidth: true
            implicitHeight: 64
            color: Theme.raised
            Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Theme.rule }
            Row {
                anchors.centerIn: parent
                spacing: 4
                Repeater {
                    model: settingsWindow.tabs
                    AbstractButton {
                        id: tabButton
                        required property var modelData
                        required property int index
                        objectName: "settingsTab" + index
                        width: 84
                        height: 52
                        hoverEnabled: true
                        onClicked: settingsWindow.tab = index
                        background: Rectangle {
                            radius: 6
                            color: settingsWindow.tab === tabButton.index ? Theme.selection
                                 : tabButton.hovered ? Theme.hover : "transparent"
                        }
                        contentItem: Column {
                            spacing: 3
                            SymbolIcon {
                                anchors.horizontalCenter: parent.horizontalCenter
                                name: tabButton.modelData.symbol
                                color: settingsWindow.tab === tabButton.index ? Theme.focus : Theme.ink2
                                size: 20
                            }
                            Text {
                                anchors.horizontalCenter: parent.horizontalCenter
                                text: tabButton.modelData.title
                                color: Theme.ink
                                font: Theme.callout
                            }
                        }
                    }
                }
            }
        }

        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: settingsWindow.tab
            SettingsGeneral {}
            SettingsAccounts {}
            SettingsAbout {}
        }
    }
}
