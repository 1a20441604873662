#pragma once

// The main window as tests and benchmarks drive it. Waits run a real event loop: QTest::qWaitFor
// sleeps between rounds, and each of the web engine's many round trips would pay that sleep.

#include "model/AppStore.h"
#include "ui/QuernsteadApp.h"

#include <QDeadlineTimer>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QWebEngineLoadingInfo>

#include <algorithm>
#include <functional>
#include <optional>

namespace qs::test {

/// By object name in the visual tree, popups included: items made by loaders hang there.
inline QList<QQuickItem*> itemsNamed(QQuickItem* from, const QString& name) {
    QList<QQuickItem*> found;
    if (from->objectName() == name)
        found.append(from);
    for (QQuickItem* child : from->childItems())
        found.append(itemsNamed(child, name));
    return found;
}

inline QQuickItem* itemNamed(QQuickWindow& window, const QString& name) {
    return itemsNamed(window.contentItem(), name).value(0);
}

/// Null if it didn't load.
inline QQuickWindow* showMainWindow(QQmlApplicationEngine& engine, AppStore& store,
                                    QSize size = {}) {
    QuernsteadApp::load(engine, store);
    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().value(0));
    if (window && size.isValid())
        window->resize(size);
    if (window)
        window->show();
    return window;
}

/// Does `start` and waits for the message view to finish the load it began (not an earlier one,
/// such as a link refused in the view); true when the page loaded.
inline bool loadPage(QObject& view, const std::function<void()>& start,
                     int timeoutMilliseconds = 10'000) {
    QSignalSpy loads(&view, SIGNAL(loadingChanged(QWebEngineLoadingInfo)));
    start();
    const QDeadlineTimer deadline(timeoutMilliseconds);
    std::optional<QWebEngineLoadingInfo::LoadStatus> status;
    for (qsizetype seen = 0; status != QWebEngineLoadingInfo::LoadSucceededStatus &&
                             status != QWebEngineLoadingInfo::LoadFailedStatus &&
                             !deadline.hasExpired();) {
        if (seen == loads.size())
            loads.wait(int(std::max<qint64>(1, deadline.remainingTime())));
        for (; seen < loads.size(); ++seen) {
            const auto next =
                static_cast<const QWebEngineLoadingInfo*>(loads.at(seen).value(0).constData())
                    ->status();
            if (status || next == QWebEngineLoadingInfo::LoadStartedStatus)
                status = next;
        }
    }
    return status == QWebEngineLoadingInfo::LoadSucceededStatus;
}

} // namespace qs::test
