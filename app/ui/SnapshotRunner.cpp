#include "SnapshotRunner.h"

#include "model/AppStore.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QTimer>

namespace qs {

namespace {

// Long enough for the window's animations (the longest is 0.35 s) to come to rest.
constexpr int settleMilliseconds = 600;

} // namespace

SnapshotRunner::SnapshotRunner(QQmlApplicationEngine& engine, QQuickWindow& window, AppStore& store,
                               QString dir)
    : engine_(engine), window_(window), store_(store), dir_(std::move(dir)) {}

void SnapshotRunner::start() {
    QDir().mkpath(dir_);
    connect(&store_, &AppStore::scanFinished, this, [this] {
        if (!shots_.empty())
            return;
        planShots();
        next();
    });
    store_.reloadArchive();
}

void SnapshotRunner::planShots() {
    shots_.push_back({QStringLiteral("main"), [] {
                      }});
}

void SnapshotRunner::next() {
    if (position_ == shots_.size()) {
        QGuiApplication::quit();
        return;
    }
    const Shot& shot = shots_[position_++];
    shot.prepare();
    QTimer::singleShot(settleMilliseconds, this, [this, name = shot.name] {
        grab(name);
        next();
    });
}

void SnapshotRunner::grab(const QString& name) {
    window_.grabWindow().save(QDir(dir_).filePath(name + QStringLiteral(".png")));
}

QObject* SnapshotRunner::find(const char* objectName) const {
    for (QObject* root : engine_.rootObjects())
        if (QObject* found = root->findChild<QObject*>(QString::fromLatin1(objectName)))
            return found;
    return nullptr;
}

} // namespace qs
