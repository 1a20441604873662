import QtQuick
import QtWebEngine
import Quernstead

// A message body on the web engine. Nothing of the engine's own reaches out: no scripts,
// no prefetching, no icons, no storage; remote requests pass the guard's blocker; links
// never open inside the view. A document loads only when it or its images' permission changes.
WebEngineView {
    id: view
    // The body: `document`, `isHtml` and `imagesAllowed` of the open message, replaced as one, so
    // that its load starts at once and a new document never loads under the last one's rules.
    property var content: null
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
    // Pictures from the web aren't even asked for until they're allowed: the blocker would
    // refuse each one, and those refusals took half of a newsletter's time to show. The mail's
    // own pictures (data: addresses) load either way.
    settings.autoLoadImages: false

    function refresh() {
        const next = guard.nextDocument(content ? content.document : "", !!content && content.isHtml,
                                        !!content && content.imagesAllowed, Theme.dark)
        if (next === undefined || next === null)
            return
        loadingDocument = true
        settings.autoLoadImages = !!content && content.imagesAllowed
        // A document too large for a data: address is served from memory instead.
        const address = guard.serve(next)
        if (address)
            url = address
        else
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

    onContentChanged: refresh()
    Connections {
        target: Theme
        function onChanged() { Qt.callLater(view.refresh) }
    }
    // Without a message there is nothing to load; the engine's first start waits for one.
    Component.onCompleted: if (content) refresh()

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
