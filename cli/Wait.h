#pragma once

#include <QEventLoop>
#include <QObject>
#include <functional>

namespace qs::cli {

/// Runs `start`, then the event loop until `sender` emits `signal`. The signal is watched from
/// before `start`, so one emitted at once is not missed.
template <typename Sender, typename Signal>
void runUntil(Sender* sender, Signal signal, const std::function<void()>& start) {
    QEventLoop loop;
    bool done = false;
    auto connection = QObject::connect(sender, signal, &loop, [&] {
        done = true;
        loop.quit();
    });
    start();
    if (!done)
        loop.exec();
    QObject::disconnect(connection);
}

} // namespace qs::cli
