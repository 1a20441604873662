import QtQuick
import QtQuick.Dialogs
import Quernstead

// The file panel of "Import .eml or .mbox…": several files, no folders, mail files only.
FileDialog {
    id: panel
    objectName: "importPanel"
    title: "Choose .eml or .mbox files to copy into your Quernstead archive."
    acceptLabel: "Import"
    fileMode: FileDialog.OpenFiles
    nameFilters: ["Mail files (*.eml *.mbox *.mbx)"]
    onAccepted: Store.importFileUrls(selectedFiles)

    property Connections requests: Connections {
        target: Commands
        function onImportPanelRequested() { panel.open() }
    }
}
