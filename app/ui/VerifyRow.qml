import QtQuick
import QtQuick.Layouts
import Quernstead

// One checked message of the cleanup: received, size, and whether its vault copy is proven.
RowLayout {
    property var row: ({})
    spacing: 10

    SymbolIcon {
        name: row.symbol || ""
        color: row.verified ? Theme.seal : Theme.caution
        size: 13
    }
    Text { text: row.date || ""; color: Theme.ink; font: Theme.callout; Layout.preferredWidth: 96 }
    Text { text: row.size || ""; color: Theme.ink2; font: Theme.callout; Layout.preferredWidth: 70 }
    Text {
        Layout.fillWidth: true
        text: row.status || ""
        color: row.verified ? Theme.seal : Theme.ink2
        font: Theme.caption
        elide: Text.ElideRight
    }
}
