import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quernstead

// The middle column: the view's title, the search field, the list by month and the timeline
// spine beside it.
Rectangle {
    id: column
    color: Theme.paper

    property alias searchField: search
    property alias list: listView
    // The last selection came from the keyboard, so the list follows it.
    property bool keyboardMove: false
    // The list is moving to a scrub's month; its top row doesn't move the timeline meanwhile.
    property bool scrubbing: false

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        ColumnLayout {
            Layout.fillWidth: true
            Layout.margins: 16
            Layout.bottomMargin: 10
            spacing: 2
            Text {
                objectName: "sidebarTitle"
                Layout.fillWidth: true
                text: Store.sidebarTitle
                color: Theme.ink
                font: Theme.title
                elide: Text.ElideRight
            }
            Text {
                objectName: "listSubtitle"
                text: WindowState.subtitle
                color: Theme.ink3
                font: Theme.callout
            }
            RowLayout {
                Layout.fillWidth: true
                Layout.topMargin: 8
                spacing: 8
                TextField {
                    id: search
                    objectName: "searchField"
                    Layout.fillWidth: true
                    placeholderText: "Search subject, people, text, attachments"
                    placeholderTextColor: Theme.ink3
                    color: Theme.ink
                    font: Theme.body
                    leftPadding: 30
                    text: Store.query
                    onTextEdited: Store.query = text
                    Keys.onDownPressed: { listView.forceActiveFocus(); column.move(1) }
                    Keys.onEscapePressed: Store.query = ""
                    background: Rectangle {
                        implicitHeight: 30
                        radius: 8
                        color: Theme.panel
                        border.color: search.activeFocus ? Theme.focus : Theme.ruleStrong
                        border.width: search.activeFocus ? 2 : 1
                    }
                    SymbolIcon {
                        x: 9
                        anchors.verticalCenter: parent.verticalCenter
                        name: "magnifyingglass"
                        color: Theme.ink3
                        size: 14
                    }
                }
                VaultButton {
                    objectName: "saveSearch"
                    visible: Store.query.trim().length > 0
                    compact: true
                    text: "Save to Sidebar"
                    help: "Keep this search in the sidebar (Ctrl+Alt+S)"
                    onClicked: Store.saveCurrentSearch()
                }
            }
        }
        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.rule }

        RowLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 0

            Item {
                Layout.fillWidth: true
                Layout.fillHeight: true

                ListView {
                    id: listView
                    objectName: "messageList"
                    anchors.fill: parent
                    clip: true
                    model: Store.messageList
                    activeFocusOnTab: true
                    boundsBehavior: Flickable.StopAtBounds
                    reuseItems: true
                    cacheBuffer: 600
                    ScrollBar.vertical: ScrollBar {}

                    delegate: Item {
                        id: slot
                        required property int index
                        required property bool isHeader
                        required property int monthOrdinal
                        required property string title
                        required property var count
                        required property string path
                        required property string sender
                        required property string fromEmail
                        required property string snippet
                        required property string rowDate
                        required property int attachments
                        required property int trackers
                        required property bool suspicious

                        width: ListView.view.width
                        height: isHeader ? 44 : 66

                        MonthHeader {
                            visible: slot.isHeader
                            anchors.fill: parent
                            title: slot.isHeader ? slot.title : ""
                            count: slot.isHeader && slot.count ? slot.count : 0
                        }
                        MessageRow {
                            visible: !slot.isHeader
                            anchors.fill: parent
                            path: slot.path
                            sender: slot.sender
                            fromEmail: slot.fromEmail
                            subject: slot.isHeader ? "" : slot.title
                            snippet: slot.snippet
                            rowDate: slot.rowDate
                            attachments: slot.attachments
                            trackers: slot.trackers
                            suspicious: slot.suspicious
                            selected: !slot.isHeader && slot.path === Store.selectedPath
                            onMenuRequested: {
                                rowMenu.path = slot.path
                                rowMenu.popup()
                            }
                            onClicked: {
                                column.keyboardMove = false
                                listView.forceActiveFocus()
                                Store.selectedPath = slot.path
                            }
                        }
                    }

                    Keys.onUpPressed: column.move(-1)
                    Keys.onDownPressed: column.move(1)
                    Keys.onReturnPressed: Store.selectedPath = Store.selectedPath
                    Keys.onEnterPressed: Store.selectedPath = Store.selectedPath

                    // The month of the top row becomes the timeline's current month.
                    onContentYChanged: column.followTop()
                    onCountChanged: column.followTop()

                    NumberAnimation {
                        id: scrubAnimation
                        target: listView
                        property: "contentY"
                        duration: Motion.spring
                        easing.type: Easing.OutCubic
                        onFinished: column.scrubbing = false
                    }
                    }

                    // The month at the top stays pinned while its rows scroll under it.
                    MonthHeader {
                        id: pinned
                        objectName: "pinnedMonth"
                        width: listView.width
                        visible: listView.count > 0 && listView.contentY > listView.originY
                        property int ordinal: -1
                        title: ordinal >= 0 ? WindowState.monthTitle(ordinal) : ""
                        count: ordinal >= 0 ? WindowState.monthCount(ordinal) : 0
                    }

                    VaultEmpty {
                        objectName: "listEmpty"
                        anchors.centerIn: listView
                        width: Math.min(listView.width - 48, 420)
                        visible: WindowState.emptyState !== null && WindowState.emptyState !== undefined
                        symbol: visible ? WindowState.emptyState.symbol : ""
                        title: visible ? WindowState.emptyState.title : ""
                        texts: visible ? WindowState.emptyState.texts : []
                        actionTitle: !visible ? "" : WindowState.emptyState.action === "backUp" ? "Back Up Now"
                                   : WindowState.emptyState.action === "showEverything" ? "Show Everything" : ""
                        actionEnabled: !visible || WindowState.emptyState.action !== "backUp"
                                       || (WindowState.hasAccounts && !Store.backup.running)
                        onAction: WindowState.emptyState.action === "backUp" ? Store.backUpAll()
                                                                            : Store.showEverything()
                    }
            }

            Rectangle { Layout.fillHeight: true; width: 1; color: Theme.rule }
            SpineColumn {
                id: spine
                Layout.fillHeight: true
                Layout.preferredWidth: 84
            }
        }
    }

    Menu {
        id: rowMenu
        property string path
        MenuItem { text: "Show in File Manager"; onTriggered: Store.revealPath(rowMenu.path) }
        MenuItem { text: "Open in Default Mail App"; onTriggered: WindowState.openInMailApp(rowMenu.path) }
        MenuItem { text: "Copy File Path"; onTriggered: WindowState.copyFilePath(rowMenu.path) }
    }

    function move(delta) {
        keyboardMove = true
        Store.selectNext(delta)
    }

    function followTop() {
        const item = listView.itemAt(10, listView.contentY + 1)
        if (!item)
            return
        pinned.ordinal = item.monthOrdinal
        if (!scrubbing && !spine.dragging)
            Store.timeline.showMonth(item.monthOrdinal)
    }

    Connections {
        target: Store
        function onSelectedPathChanged() {
            if (!column.keyboardMove || Store.selectedPath.length === 0)
                return
            const row = Store.selectedRow()
            if (row >= 0)
                listView.positionViewAtIndex(row, ListView.Contain)
        }
    }

    Connections {
        target: Store.timeline
        function onScrubTargetChanged() {
            const ordinal = Store.timeline.scrubTargetMonth
            if (ordinal === null || ordinal === undefined)
                return
            const row = Store.messageList.headerRow(ordinal)
            if (row < 0)
                return
            column.scrubbing = true
            scrubAnimation.stop()
            const from = listView.contentY
            listView.positionViewAtIndex(row, ListView.Beginning)
            let to = listView.contentY
            if (Motion.reduced || from === to) {
                column.scrubbing = false
                column.followTop()
                return
            }
            // Across years only the last page moves: animating through every row between would
            // build each of them on the way (seconds and gigabytes in a large vault).
            let start = from
            const page = listView.height
            if (Math.abs(to - from) > 2 * page) {
                start = to > from ? to - page : to + page
                listView.contentY = start
                listView.positionViewAtIndex(row, ListView.Beginning)
                to = listView.contentY
            }
            listView.contentY = start
            scrubAnimation.from = start
            scrubAnimation.to = to
            scrubAnimation.start()
        }
    }
}
