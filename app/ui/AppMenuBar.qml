import QtQuick
import QtQuick.Controls
import Quernstead

// The menu bar, laid out from the command table; the same table gives the keyboard shortcuts,
// which work wherever focus is, the search field included.
MenuBar {
    id: bar
    objectName: "appMenuBar"

    background: Rectangle {
        implicitHeight: 28
        color: Theme.raised
        Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Theme.rule }
    }
    delegate: MenuBarItem {
        id: barItem
        contentItem: Text {
            text: barItem.text
            color: Theme.ink
            font: Theme.body
            verticalAlignment: Text.AlignVCenter
        }
        background: Rectangle { color: barItem.highlighted ? Theme.hover : "transparent"; radius: 4 }
    }

    Instantiator {
        model: Commands.menus
        delegate: Menu {
            id: menu
            required property var modelData
            title: modelData.title
            width: 300
            background: Rectangle {
                implicitWidth: 300
                color: Theme.panel
                border.color: Theme.rule
                radius: 6
            }
            Instantiator {
                model: menu.modelData.items
                delegate: MenuItem {
                    id: entry
                    required property var modelData
                    objectName: "menu:" + modelData.action
                    text: modelData.title
                    implicitHeight: 28
                    leftPadding: 10
                    rightPadding: 10
                    enabled: Commands.enabled[modelData.action] === true
                    onTriggered: Commands.trigger(modelData.action)
                    contentItem: Item {
                        Text {
                            anchors.left: parent.left
                            anchors.verticalCenter: parent.verticalCenter
                            text: entry.text
                            color: entry.highlighted ? "white" : Theme.ink
                            font: Theme.body
                        }
                        Text {
                            anchors.right: parent.right
                            anchors.verticalCenter: parent.verticalCenter
                            text: entry.modelData.keysText
                            color: entry.highlighted ? "white" : Theme.ink3
                            font: Theme.callout
                        }
                    }
                    background: Rectangle {
                        color: entry.highlighted ? Theme.focus : "transparent"
                        radius: 4
                    }
                    opacity: enabled ? 1 : 0.45
                }
                onObjectAdded: (index, object) => menu.insertItem(index, object)
                onObjectRemoved: (index, object) => menu.removeItem(object)
            }
        }
        onObjectAdded: (index, object) => bar.insertMenu(index, object)
        onObjectRemoved: (index, object) => bar.removeMenu(object)
    }

    Instantiator {
        model: Commands.keyed
        delegate: Shortcut {
            required property var modelData
            sequence: modelData.keys
            context: Qt.ApplicationShortcut
            enabled: Commands.enabled[modelData.action] === true
            onActivated: Commands.trigger(modelData.action)
        }
    }
}
