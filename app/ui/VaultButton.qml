import QtQuick
import QtQuick.Controls
import Quernstead

// The window's button: primary fills with the accent, destructive with danger, secondary is
// outlined, quiet has no chrome. `symbol` adds a symbol before the title; `help` is its tip.
Button {
    id: control
    property string kind: "secondary"
    property bool compact: false
    property string symbol
    property string help

    readonly property color fill: kind === "primary" ? Theme.focus
                                : kind === "destructive" ? Theme.danger : "transparent"
    readonly property color foreground: kind === "primary" || kind === "destructive" ? "white"
                                      : kind === "quiet" ? Theme.ink2 : Theme.ink

    hoverEnabled: true
    focusPolicy: Qt.TabFocus
    padding: compact ? 4 : 7
    leftPadding: compact ? 8 : 14
    rightPadding: compact ? 8 : 14
    opacity: enabled ? 1 : 0.45
    font: compact ? Theme.callout : Theme.body

    ToolTip.visible: help.length > 0 && hovered
    ToolTip.delay: 600
    ToolTip.text: help

    contentItem: Row {
        spacing: 6
        SymbolIcon {
            visible: control.symbol.length > 0
            name: control.symbol
            color: control.foreground
            size: control.compact ? 13 : 15
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            visible: control.text.length > 0
            text: control.text
            font: control.font
            color: control.foreground
            anchors.verticalCenter: parent.verticalCenter
        }
    }

    background: Rectangle {
        implicitHeight: control.compact ? 24 : 30
        radius: 7
        color: {
            if (control.kind === "primary" || control.kind === "destructive")
                return control.down ? Qt.darker(control.fill, 1.15)
                     : control.hovered ? Qt.lighter(control.fill, 1.08) : control.fill
            return control.down ? Theme.ruleStrong : control.hovered ? Theme.hover : "transparent"
        }
        border.color: control.kind === "secondary" ? Theme.ruleStrong : "transparent"
        border.width: control.visualFocus ? 2 : 1
    }
}
