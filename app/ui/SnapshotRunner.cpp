#include "SnapshotRunner.h"

#include "Motion.h"
#include "Theme.h"
#include "model/AppStore.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QTimer>
#include <QtQml/qqml.h>

namespace qs {

namespace {

// Long enough for the window's animations (the longest is 0.35 s) to come to rest.
constexpr int settleMilliseconds = 700;

template <typename T>
T* singleton(QQmlApplicationEngine& engine, const char* name) {
    return engine.singletonInstance<T*>(qmlTypeId("Quernstead", 1, 0, name));
}

} // namespace

SnapshotRunner::SnapshotRunner(QQmlApplicationEngine& engine, QQuickWindow& window, AppStore& store,
                               QString dir)
    : engine_(engine), window_(window), store_(store), dir_(std::move(dir)),
      vault_(store.layout().root) {
    connect(&store_, &AppStore::scanFinished, this, [this] {
        if (!waitingForScan_)
            return;
        waitingForScan_ = false;
        settleThenGrab(pending_);
    });
}

void SnapshotRunner::start() {
    QDir().mkpath(dir_);
    makeScratchVaults();
    planShots(false);
    planShots(true);
    waitingForScan_ = true;
    pending_.clear();
    store_.reloadArchive();
}

void SnapshotRunner::makeScratchVaults() {
    namespace fs = std::filesystem;
    const fs::path root = scratch_.path().toStdString();
    std::error_code ignored;
    for (const char* name : {"accounts-only", "quiet", "empty"})
        fs::create_directories(root / name / ".quernstead", ignored);
    for (const char* name : {"accounts-only", "quiet"})
        fs::copy_file(store_.layout().accountsURL(),
                      root / name / store_.layout().accountsURL().lexically_relative(vault_),
                      ignored);
}

void SnapshotRunner::planShots(bool dark) {
    namespace fs = std::filesystem;
    const QString prefix = dark ? QStringLiteral("dark-") : QStringLiteral("light-");
    const auto add = [&](const char* name, std::function<bool()> prepare) {
        shots_.push_back({prefix + QLatin1String(name), std::move(prepare)});
    };
    add("main", [this, dark] {
        singleton<Theme>(engine_, "Theme")->setDark(dark);
        if (store_.layout().root != vault_) {
            useVault(vault_);
            return true;
        }
        return false;
    });
    add("selected", [this] {
        store_.showEverything();
        if (!store_.visible().empty())
            store_.setSelectedPath(store_.visible().front()->path);
        return false;
    });
    for (const char* filter : {"recent", "attachments", "trackers", "suspicious", "large"})
        add((std::string("filter-") + filter).c_str(), [this, filter] {
            store_.setSelectedPath(std::nullopt);
            store_.showSmart(QString::fromLatin1(filter));
            return false;
        });
    add("search-none", [this] {
        store_.showEverything();
        store_.setQuery("quokka umbrella");
        return false;
    });
    add("spine-hover", [this] {
        store_.setQuery("");
        if (QObject* spine = find(QStringLiteral("spine")); spine && store_.groups().size() > 3)
            spine->setProperty("hoverOrdinal", store_.groups()[3].key.ordinal());
        return false;
    });
    add("toast", [this] {
        if (QObject* spine = find(QStringLiteral("spine")))
            spine->setProperty("hoverOrdinal", QVariant());
        store_.setQuery("invoice");
        store_.saveCurrentSearch();
        return false;
    });
    add("remove-account", [this] {
        store_.dismissToast();
        if (!store_.savedSearches().empty())
            store_.removeSavedSearch(store_.savedSearches().back().id);
        store_.showEverything();
        if (QObject* dialog = find(QStringLiteral("removeDialog"));
            dialog && !store_.accounts().empty())
            QMetaObject::invokeMethod(
                dialog, "ask",
                Q_ARG(QVariant, QString::fromStdString(store_.accounts()[0].id.string())),
                Q_ARG(QVariant, QString::fromStdString(store_.accounts()[0].label)));
        return false;
    });
    add("vault-empty", [this] {
        if (QObject* dialog = find(QStringLiteral("removeDialog")))
            QMetaObject::invokeMethod(dialog, "close");
        fillQuietVault();
        useVault(scratchRoot() / "accounts-only");
        return true;
    });
    add("all-clear", [this] {
        useVault(scratchRoot() / "quiet");
        store_.showSmart(QStringLiteral("suspicious"));
        return true;
    });
    add("welcome", [this] {
        useVault(fs::path(scratch_.path().toStdString()) / "empty");
        return true;
    });
}

std::filesystem::path SnapshotRunner::scratchRoot() const {
    return std::filesystem::path(scratch_.path().toStdString());
}

void SnapshotRunner::fillQuietVault() {
    namespace fs = std::filesystem;
    if (store_.layout().root != vault_)
        return;
    // A few messages of the real vault that nothing flags, so that the safety shelves are empty.
    int copied = 0;
    for (const RecordRef& record : store_.records()) {
        if (copied == 4)
            break;
        if (record->isSuspicious() || record->trackers > 0)
            continue;
        const fs::path target = scratchRoot() / "quiet" / record->path;
        std::error_code error;
        fs::create_directories(target.parent_path(), error);
        if (fs::copy_file(store_.layout().url(record->path), target, error))
            ++copied;
    }
}

void SnapshotRunner::useVault(const std::filesystem::path& root) {
    store_.setQuery("");
    store_.setSelectedPath(std::nullopt);
    store_.showEverything();
    store_.changeArchiveRoot(root);
}

void SnapshotRunner::next() {
    if (position_ == shots_.size()) {
        QGuiApplication::quit();
        return;
    }
    const Shot& shot = shots_[position_++];
    pending_ = shot.name;
    if (shot.prepare())
        waitingForScan_ = true;
    else
        settleThenGrab(shot.name);
}

void SnapshotRunner::settleThenGrab(const QString& name) {
    QTimer::singleShot(settleMilliseconds, this, [this, name] {
        if (!name.isEmpty())
            window_.grabWindow().save(QDir(dir_).filePath(name + QStringLiteral(".png")));
        next();
    });
}

QObject* SnapshotRunner::find(const QString& objectName) const {
    for (QObject* root : engine_.rootObjects())
        if (QObject* found = root->findChild<QObject*>(objectName))
            return found;
    return nullptr;
}

} // namespace qs
