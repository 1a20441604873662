import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// Software Update: the program's icon, where the updater stands, the release notes and what
// can be done next. Every word comes from the updater; this only lays them out.
Item {
    id: view
    objectName: "updateView"
    signal closeRequested()

    readonly property var buttonTitles: ({
        later: "Later",
        downloadAndInstall: "Download & Install",
        openDownloadPage: "Open Download Page",
        restartNow: "Restart Now"
    })

    function act(button) {
        if (button === "later") {
            view.closeRequested()
        } else if (button === "downloadAndInstall") {
            Updater.downloadAvailable()
        } else if (button === "openDownloadPage") {
            Updater.openDownloadPage()
            view.closeRequested()
        } else if (button === "restartNow") {
            Updater.installAndRelaunch()
        }
    }

    RowLayout {
        anchors.fill: parent
        anchors.margins: 24
        spacing: 20

        Image {
            Layout.alignment: Qt.AlignTop
            source: "qrc:/Quernstead/appicon.svg"
            sourceSize: Qt.size(64, 64)
            width: 64
            height: 64
        }

        ColumnLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 10

            Text {
                objectName: "updateTitle"
                Layout.fillWidth: true
                text: Updater.title
                color: Theme.ink
                font: Theme.title
                wrapMode: Text.WordWrap
            }
            Text {
                objectName: "updateDetail"
                Layout.fillWidth: true
                visible: text.length > 0
                text: Updater.detail
                color: Theme.ink2
                font: Theme.body
                wrapMode: Text.WordWrap
            }
            ProgressLine {
                objectName: "updateProgress"
                Layout.fillWidth: true
                Layout.topMargin: 4
                visible: Updater.phaseName === "downloading" || Updater.phaseName === "checking"
                value: Updater.progress
                // While checking there is no total: the line sweeps.
                total: Updater.phaseName === "downloading" ? 1 : 0
            }
            ScrollView {
                id: notes
                objectName: "updateNotes"
                Layout.fillWidth: true
                Layout.fillHeight: true
                visible: Updater.notes.length > 0
                contentWidth: availableWidth
                background: Rectangle {
                    radius: Theme.rCard
                    color: Theme.panel
                    border.color: Theme.rule
                }
                TextArea {
                    readOnly: true
                    text: Updater.notes
                    color: Theme.ink
                    font: Theme.callout
                    wrapMode: TextEdit.Wrap
                    background: null
                }
            }
            Item { Layout.fillHeight: true; visible: !notes.visible }
            RowLayout {
                Layout.alignment: Qt.AlignRight
                spacing: 8
                Repeater {
                    model: Updater.buttons
                    VaultButton {
                        required property string modelData
                        objectName: "update:" + modelData
                        text: view.buttonTitles[modelData]
                        kind: modelData === "later" ? "secondary" : "primary"
                        onClicked: view.act(modelData)
                    }
                }
            }
        }
    }
}
