#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <utility>

namespace qs::MainThread {

/// Runs `work(object)` on the main thread, later, if `object` still exists then. Safe to call
/// from any thread: the pointer is only looked at on the main thread.
template <typename T, typename Work>
void post(QPointer<T> object, Work work) {
    auto* application = QCoreApplication::instance();
    if (application == nullptr) {
        return; // the program is ending; nobody is left to publish to
    }
    QMetaObject::invokeMethod(
        application,
        [object, work = std::move(work)]() mutable {
            if (object) {
                work(*object);
            }
        },
        Qt::QueuedConnection);
}

} // namespace qs::MainThread
