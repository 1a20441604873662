#pragma once

#include <QObject>
#include <QSocketNotifier>

namespace qs::cli {

/// Turns SIGINT and SIGTERM into a Qt signal on the main thread: the handler only writes a
/// byte to a pipe (all it may safely do), and a socket notifier reads it in the event loop. A
/// second one of the same while the first is being handled ends the program the usual way.
class Interrupt : public QObject {
    Q_OBJECT
public:
    explicit Interrupt(QObject* parent = nullptr);
    ~Interrupt() override;

signals:
    void interrupted();

private:
    QSocketNotifier* notifier_ = nullptr;
};

} // namespace qs::cli
