#pragma once

// The main window as tests and benchmarks drive it: loaded for a store, shown, its items found
// by object name, and waits that run a real event loop. QTest::qWaitFor sleeps between rounds,
// and the web engine's many round trips through the interface thread would each pay that sleep.

#include "model/AppStore.h"
#include "ui/QuernsteadApp.h"

#include <QDeadlineTimer>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QWebEngineLoadingInfo>

#include <algorithm>

namespace qs::test {

/// Items of a window's visual tree, popups included, by object name: items made by loaders
/// hang there, not always among QObject children.
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

/// The main window of `store` loaded into `engine` and shown at `size`; null if it didn't load.
inline QQuickWindow* showMainWindow(QQmlApplicationEngine& engine, AppStore& store,
                                    QSize size = {1280, 800}) {
    QuernsteadApp::load(engine, store);
    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().value(0));
    if (window) {
        window->resize(size);
        window->show();
    }
    return window;
}

/// Runs the event loop, waking at each of the spy's signals, until `done` or the timeout.
template <typename Predicate>
bool waitUntil(QSignalSpy& spy, Predicate done, int timeoutMilliseconds) {
    const QDeadlineTimer deadline(timeoutMilliseconds);
    while (!done() && !deadline.hasExpired())
        spy.wait(int(std::max<qint64>(1, deadline.remainingTime())));
    return done();
}

/// Does `start` and waits for the message view to finish the load it causes: the load's last
/// status, or LoadStartedStatus when none ended in time.
template <typename Start>
QWebEngineLoadingInfo::LoadStatus loadPage(QObject& view, Start start,
                                           int timeoutMilliseconds = 10'000) {
    QSignalSpy loads(&view, SIGNAL(loadingChanged(QWebEngineLoadingInfo)));
    auto status = QWebEngineLoadingInfo::LoadStartedStatus;
    start();
    waitUntil(
        loads,
        [&] {
            for (const auto& args : loads)
                status =
                    static_cast<const QWebEngineLoadingInfo*>(args.value(0).constData())->status();
            return status != QWebEngineLoadingInfo::LoadStartedStatus;
        },
        timeoutMilliseconds);
    return status;
}

} // namespace qs::test
