#pragma once

#include <QObject>
#include <QString>
#include <functional>
#include <vector>

class QQmlApplicationEngine;
class QQuickWindow;

namespace qs {

class AppStore;

/// Renders every screen and state of the window to "{dir}/{name}.png" at the window's fixed
/// size, in light and in dark, then quits. Each shot first puts the store and the window into
/// its state, lets the window settle, then grabs it.
class SnapshotRunner : public QObject {
    Q_OBJECT

public:
    SnapshotRunner(QQmlApplicationEngine& engine, QQuickWindow& window, AppStore& store,
                   QString dir);

    void start();

private:
    struct Shot {
        QString name;
        std::function<void()> prepare;
    };

    void planShots();
    void next();
    void grab(const QString& name);
    QObject* find(const char* objectName) const;

    QQmlApplicationEngine& engine_;
    QQuickWindow& window_;
    AppStore& store_;
    QString dir_;
    std::vector<Shot> shots_;
    size_t position_ = 0;
};

} // namespace qs
