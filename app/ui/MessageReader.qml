import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts
import Quernstead

// One message top to bottom: subject, sender and trust, the safety notes in their order, the
// catalogue card, the attachments, and the body under the remote-content blocker.
Item {
    id: reader
    property var message
    property bool showLinks: false
    property bool showAuth: false
    readonly property string path: message ? message.path : ""
    onPathChanged: { showLinks = false; showAuth = false }
    onShowAuthChanged: showAuth ? authSheet.open() : authSheet.close()

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        ColumnLayout {
            Layout.fillWidth: true
            Layout.margins: 20
            Layout.bottomMargin: 10
            spacing: 10

            Text {
                objectName: "readerSubject"
                Layout.fillWidth: true
                text: message ? message.subject : ""
                color: Theme.ink
                font: Theme.title
                wrapMode: Text.WordWrap
            }
            RowLayout {
                spacing: 10
                Monogram {
                    name: message ? message.sender : ""
                    email: message ? message.fromEmail : ""
                    size: 34
                }
                ColumnLayout {
                    spacing: 1
                    Layout.fillWidth: true
                    Text { text: message ? message.sender : ""; color: Theme.ink; font: Theme.headline; elide: Text.ElideRight; Layout.fillWidth: true }
                    RowLayout {
                        spacing: 6
                        Text { text: message ? message.fromEmail : ""; color: Theme.ink2; font: Theme.callout }
                        Seal { visible: !!message && message.verified; size: 13 }
                        VaultButton {
                            objectName: "authButton"
                            kind: "quiet"
                            compact: true
                            text: message ? message.authButton : ""
                            help: "Sender checks recorded by your mail provider"
                            onClicked: reader.showAuth = true
                        }
                    }
                }
            }

            SafetyNote {
                objectName: "senderNote"
                Layout.fillWidth: true
                visible: !!message && message.senderReasons.length > 0
                symbol: "exclamationmark.triangle.fill"
                tint: Theme.danger
                title: "This may not be who it says"
                text: message ? message.senderReasons : ""
            }
            SafetyNote {
                objectName: "replyToNote"
                Layout.fillWidth: true
                visible: !!message && message.replyTo.length > 0
                symbol: "arrow.uturn.backward"
                title: message ? message.replyTo : ""
            }
            SafetyNote {
                objectName: "linkNote"
                Layout.fillWidth: true
                visible: !!message && message.linkWarnings.length > 0
                symbol: "link"
                title: message ? message.linkTitle : ""
                text: "The text shows one website but the link opens another."
                Column {
                    width: parent.width
                    spacing: 4
                    VaultButton {
                        objectName: "linkToggle"
                        kind: "quiet"
                        compact: true
                        leftPadding: 0
                        text: reader.showLinks ? "Hide" : "Show"
                        onClicked: reader.showLinks = !reader.showLinks
                    }
                    Repeater {
                        model: reader.showLinks && message ? message.linkWarnings : []
                        Row {
                            required property var modelData
                            spacing: 6
                            Text { text: modelData.shownDomain; color: Theme.ink; font: Theme.callout }
                            SymbolIcon { name: "arrow.right"; color: Theme.caution; size: 13; anchors.verticalCenter: parent.verticalCenter }
                            Text { text: modelData.actualHost; color: Theme.caution; font: Theme.callout }
                        }
                    }
                }
            }
            SafetyNote {
                objectName: "imagesNote"
                Layout.fillWidth: true
                visible: !!message && message.remoteImages > 0
                symbol: "photo"
                tint: Theme.focus
                title: "Remote images are off"
                text: "Pictures from the web load only when you ask."
                VaultButton {
                    objectName: "showImagesButton"
                    compact: true
                    text: message ? message.showImages : ""
                    help: "Load remote pictures with Ctrl+Shift+L. Tracking pixels stay blocked."
                    onClicked: Store.allowImages(reader.path)
                }
            }
            RowLayout {
                objectName: "trackersChip"
                visible: !!message && message.trackers > 0
                Layout.fillWidth: true
                spacing: 8
                Rectangle {
                    implicitWidth: chipRow.implicitWidth + 16
                    implicitHeight: 24
                    radius: 12
                    color: Qt.rgba(Theme.seal.r, Theme.seal.g, Theme.seal.b, 0.12)
                    Row {
                        id: chipRow
                        anchors.centerIn: parent
                        spacing: 5
                        SymbolIcon { name: "eye.slash"; color: Theme.seal; size: 13; anchors.verticalCenter: parent.verticalCenter }
                        Text { text: message ? message.trackerChip : ""; color: Theme.seal; font: Theme.callout }
                    }
                }
                Text {
                    Layout.fillWidth: true
                    text: message ? message.trackerDetail : ""
                    color: Theme.ink3
                    font: Theme.caption
                    wrapMode: Text.WordWrap
                }
            }

            CatalogueLabel {
                Layout.fillWidth: true
                message: reader.message
            }

            Flow {
                Layout.fillWidth: true
                spacing: 8
                visible: !!message && message.attachments.length > 0
                Repeater {
                    model: message ? message.attachments : []
                    AttachmentChip {
                        required property var modelData
                        attachment: modelData
                        onPreview: ReaderActions.preview(modelData.id)
                        onSave: saveDialog.ask(modelData.id)
                    }
                }
            }
        }

        Rectangle { Layout.fillWidth: true; implicitHeight: 1; color: Theme.rule }

        MailWebView {
            id: body
            objectName: "mailWebView"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.minimumHeight: 120
            content: message
            warnings: message ? message.linkWarnings : []
            onLinkWarned: (shownDomain, actualHost, address) => linkDialog.ask(shownDomain, actualHost, address)
        }
    }

    Dialog {
        id: authSheet
        objectName: "authSheet"
        parent: Overlay.overlay
        anchors.centerIn: parent
        modal: true
        width: 440
        onClosed: reader.showAuth = false
        background: Rectangle { color: Theme.panel; radius: Theme.rCard; border.color: Theme.rule }
        header: Text {
            text: "What your mail provider recorded"
            color: Theme.ink
            font: Theme.headline
            padding: 18
            bottomPadding: 0
        }
        contentItem: ColumnLayout {
            spacing: 8
            Repeater {
                model: message ? message.authResults : []
                RowLayout {
                    required property var modelData
                    spacing: 8
                    SymbolIcon { name: modelData.pass ? "checkmark" : "xmark"; color: modelData.pass ? Theme.seal : Theme.danger; size: 15 }
                    Text { text: modelData.mechanism; color: Theme.ink; font: Theme.headline; Layout.preferredWidth: 60 }
                    Text { text: modelData.result; color: Theme.ink2; font: Theme.body }
                }
            }
            Text {
                Layout.fillWidth: true
                Layout.preferredWidth: 400
                text: message && message.authResults.length > 0
                      ? "SPF checks the sending server, DKIM checks the signature and DMARC ties both to the From address. A pass means the message really came from the domain it claims."
                      : "This message has no Authentication-Results header, so there’s nothing to check."
                color: Theme.ink2
                font: Theme.callout
                wrapMode: Text.WordWrap
            }
        }
        footer: RowLayout {
            Item { Layout.fillWidth: true }
            VaultButton { text: "Done"; kind: "primary"; onClicked: authSheet.close(); Layout.margins: 16; Layout.topMargin: 0 }
        }
    }

    Dialog {
        id: linkDialog
        objectName: "linkWarningDialog"
        property string shownDomain
        property string actualHost
        property url address
        function ask(shown, actual, url) { shownDomain = shown; actualHost = actual; address = url; open() }
        parent: Overlay.overlay
        anchors.centerIn: parent
        modal: true
        width: 420
        background: Rectangle { color: Theme.panel; radius: Theme.rCard; border.color: Theme.rule }
        header: Text {
            text: "This link doesn’t go to " + linkDialog.shownDomain
            color: Theme.ink
            font: Theme.headline
            wrapMode: Text.WordWrap
            padding: 18
            bottomPadding: 0
        }
        contentItem: Text {
            text: "It opens " + linkDialog.actualHost + ". Only continue if you trust that site."
            color: Theme.ink2
            font: Theme.body
            wrapMode: Text.WordWrap
        }
        footer: RowLayout {
            spacing: 8
            Item { Layout.fillWidth: true }
            VaultButton { objectName: "linkCancel"; text: "Cancel"; onClicked: linkDialog.close(); Layout.bottomMargin: 16 }
            VaultButton {
                objectName: "linkOpen"
                text: "Open " + linkDialog.actualHost
                Layout.bottomMargin: 16
                Layout.rightMargin: 16
                onClicked: { linkDialog.close(); body.openAddress(linkDialog.address) }
            }
        }
    }

    FileDialog {
        id: saveDialog
        property var attachmentId
        function ask(id) {
            attachmentId = id
            selectedFile = "file:///" + ReaderActions.filename(id)
            open()
        }
        fileMode: FileDialog.SaveFile
        onAccepted: {
            const failure = ReaderActions.save(attachmentId, selectedFile)
            if (failure.title !== undefined)
                saveFailed.show(failure.title, failure.text)
        }
    }

    Dialog {
        id: saveFailed
        property string heading
        property string detail
        function show(t, d) { heading = t; detail = d; open() }
        parent: Overlay.overlay
        anchors.centerIn: parent
        modal: true
        width: 420
        background: Rectangle { color: Theme.panel; radius: Theme.rCard; border.color: Theme.rule }
        header: Text { text: saveFailed.heading; color: Theme.ink; font: Theme.headline; wrapMode: Text.WordWrap; padding: 18; bottomPadding: 0 }
        contentItem: Text { text: saveFailed.detail; color: Theme.ink2; font: Theme.body; wrapMode: Text.WordWrap }
        footer: RowLayout {
            Item { Layout.fillWidth: true }
            VaultButton { text: "OK"; kind: "primary"; onClicked: saveFailed.close(); Layout.margins: 16; Layout.topMargin: 0 }
        }
    }
}
