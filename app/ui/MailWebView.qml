import QtQuick
import QtWebEngine
import Quernstead

// A message body on the web engine. Nothing of the engine's own reaches out: no scripts,
// no prefetching, no icons, no storage; remote requests pass the guard's blocker; links
// never open inside the view. A document loads only when it or `allowRemote` changes.
WebEngineView {
    id: view
    property string document
    property bool isHtml
    property bool allowRemote
    property var warnings: []
    // True from a load's start until its own navigation is decided.
    property bool loadingDocument: false
    // A link the policy stopped at a warning; the reader asks before opening it.
    signal linkWarned(string shownDomain, string actualHost, url address)

    MailWebGuard {
        id: guard
        warnings: view.warnings
    }

    profile: guard.profile
    backgroundColor: "transparent"
    settings.javascriptEnabled: false
    settings.javascriptCanOpenWindows: false
    settings.javascriptCanAccessClipboard: false
    settings.localStorageEnabled: false
    settings.pluginsEnabled: false
    settings.pdfViewerEnabled: false
    settings.webGLEnabled: false
    settings.accelerated2dCanvasEnabled: false
    settings.dnsPrefetchEnabled: false
    settings.hyperlinkAuditingEnabled: false
    settings.autoLoadIconsForPage: false
    settings.touchIconsEnabled: false
    settings.localContentCanAccessRemoteUrls: false
    settings.localContentCanAccessFileUrls: false
    settings.allowRunningInsecureContent: false
    settings.errorPageEnabled: false
    settings.focusOnNavigationEnabled: false
    settings.playbackRequiresUserGesture: true

    function refresh() {
        const next = guard.nextDocument(document, isHtml, allowRemote, Theme.dark)
        if (next === undefined || next === null)
            return
        loadingDocument = true
        loadHtml(next)
    }

    function openAddress(address) {
        guard.openOutside(address)
    }

    function follow(address, linkClick) {
        const decision = guard.decide(address, linkClick, false)
        if (decision.shownDomain !== undefined)
            view.linkWarned(decision.shownDomain, decision.actualHost, address)
        else if (decision.open)
            guard.openOutside(address)
    }

    onDocumentChanged: Qt.callLater(refresh)
    onIsHtmlChanged: Qt.callLater(refresh)
    onAllowRemoteChanged: Qt.callLater(refresh)
    Connections {
        target: Theme
        function onChanged() { Qt.callLater(view.refresh) }
    }
    Component.onCompleted: refresh()

    onNavigationRequested: function (request) {
        const link = request.navigationType === WebEngineNavigationRequest.LinkClickedNavigation
        const initial = loadingDocument && request.isMainFrame && !link
        if (request.isMainFrame)
            loadingDocument = false
        const decision = guard.decide(request.url, link, initial)
        if (decision.allow) {
            request.accept()
            return
        }
        request.reject()
        if (link)
            follow(request.url, true)
    }
    // A link that asks for a new window is a link click all the same.
    onNewWindowRequested: function (request) {
        follow(request.requestedUrl, true)
    }
    onContextMenuRequested: function (request) {
        request.accepted = true
    }
}
