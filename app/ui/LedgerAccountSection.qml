import QtQuick
import QtQuick.Layouts
import Quernstead

// One account in the backup ledger: its name and last check, its problem, and a line per
// folder with what the backup did there.
Rectangle {
    id: card
    property var section: ({})

    implicitHeight: column.implicitHeight + 24
    radius: Theme.rCard
    color: Theme.panel
    border.color: Theme.rule

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 12
        spacing: 8

        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            SymbolIcon { name: card.section.symbol || ""; color: Theme.focus; size: 16 }
            Text { text: card.section.label || ""; color: Theme.ink; font: Theme.headline }
            Text { text: card.section.checked || ""; color: Theme.ink3; font: Theme.caption }
            Item { Layout.fillWidth: true }
            VaultButton {
                compact: true
                text: "Back Up"
                enabled: !Store.backup.running
                onClicked: Store.backUpAccount(card.section.id)
            }
        }
        SafetyNote {
            Layout.fillWidth: true
            visible: card.section.problem !== undefined && card.section.problem !== null
            symbol: "exclamationmark.triangle"
            tint: Theme.caution
            title: visible ? card.section.problem.title : ""
            text: visible ? card.section.problem.advice : ""
        }
        Repeater {
            model: card.section.folders || []
            ColumnLayout {
                required property var modelData
                Layout.fillWidth: true
                spacing: 3
                RowLayout {
                    Layout.fillWidth: true
                    spacing: 6
                    SymbolIcon { name: WindowState.folderSymbol(modelData.name); color: Theme.ink3; size: 13 }
                    Text {
                        Layout.fillWidth: true
                        text: modelData.name
                        color: Theme.ink
                        font: Theme.callout
                        elide: Text.ElideRight
                    }
                    SymbolIcon {
                        visible: modelData.symbol.length > 0
                        name: modelData.symbol
                        color: Theme.seal
                        size: 12
                    }
                    Text {
                        objectName: "folderStatus"
                        text: modelData.text
                        color: modelData.kind === "finished" ? Theme.seal
                             : modelData.kind === "running" ? Theme.focus : Theme.ink3
                        font: Theme.caption
                    }
                }
                ProgressLine {
                    Layout.fillWidth: true
                    visible: modelData.kind === "running"
                    value: modelData.done
                    total: modelData.total
                }
            }
        }
    }
}
