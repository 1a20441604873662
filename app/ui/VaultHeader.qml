import QtQuick
import QtQuick.Layouts
import Quernstead

// The vault's title and what it holds, with a progress line while it is being indexed.
ColumnLayout {
    spacing: 3

    RowLayout {
        spacing: 7
        SymbolIcon { name: "checkmark.shield.fill"; color: Theme.seal; size: 15 }
        SmallCaps { text: "The Vault"; color: Theme.ink2 }
    }
    Text {
        Layout.fillWidth: true
        text: [Store.vaultSummary, WindowState.yearSpan].filter(s => s.length > 0).join(" · ")
        color: Theme.ink2
        font: Theme.caption
        wrapMode: Text.WordWrap
    }
    ProgressLine {
        Layout.fillWidth: true
        Layout.topMargin: 3
        visible: Store.indexing !== undefined && Store.indexing !== null
        value: visible ? Store.indexing.done : 0
        total: visible ? Store.indexing.total : 0
    }
}
