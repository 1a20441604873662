#include "QuernsteadApp.h"

#include "MailScheme.h"
#include "QuernsteadCommands.h"
#include "ReaderActions.h"
#include "SnapshotRunner.h"
#include "SymbolImageProvider.h"
#include "Updater/Updater.h"
#include "WindowState.h"
#include "model/AppStore.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <QtQml/qqml.h>
#include <QtWebEngineQuick/qtwebenginequickglobal.h>

#include <filesystem>
#include <vector>

namespace qs {

namespace {

constexpr QSize defaultSize{1280, 800};
constexpr auto sizeKey = "mainWindowSize";

// Waits for a stopped backup to finish its batch; the stop is checked at every batch and
// chunk boundary, and a stalled server gives up within its own time-out.
void finishBackup(AppStore& store) {
    if (!store.backup().running)
        return;
    QEventLoop loop;
    QObject::connect(&store, &AppStore::backupFinished, &loop, &QEventLoop::quit);
    store.stopBackup();
    if (store.backup().running)
        loop.exec();
}

} // namespace

void QuernsteadApp::load(QQmlApplicationEngine& engine, AppStore& store) {
    // The updater is made here but started only at launch end (run), so tests and
    // screenshots that load the window never reach the network.
    auto* updater = new brindle::Updater(
        brindle::UpdaterConfiguration::running(QStringLiteral(QS_UPDATE_FEED_URL),
                                               QStringLiteral(QS_UPDATE_PUBLIC_KEY)),
        &engine);
    updater->setObjectName(QStringLiteral("updater"));
    qmlRegisterSingletonInstance("Quernstead", 1, 0, "Updater", updater);
    qmlRegisterSingletonInstance("Quernstead", 1, 0, "Store", &store);
    qmlRegisterSingletonInstance("Quernstead", 1, 0, "WindowState",
                                 new WindowState(store, &engine));
    qmlRegisterSingletonInstance("Quernstead", 1, 0, "ReaderActions",
                                 new ReaderActions(store, &engine));
    engine.addImageProvider(QStringLiteral("symbol"), new SymbolImageProvider);
    engine.load(QUrl(QStringLiteral("qrc:/Quernstead/Main.qml")));
    const int commandsType = qmlTypeId("Quernstead", 1, 0, "Commands");
    if (auto* commands = engine.singletonInstance<QuernsteadCommands*>(commandsType))
        commands->setUpdater(updater);
}

brindle::Updater* QuernsteadApp::updater(QQmlApplicationEngine& engine) {
    return engine.findChild<brindle::Updater*>(QStringLiteral("updater"),
                                               Qt::FindDirectChildrenOnly);
}

int QuernsteadApp::run(int argc, char** argv) {
    // The reader's web engine shares the window's graphics context, so it starts first, and
    // its documents' scheme is known before it does.
    MailScheme::registerScheme();
    QtWebEngineQuick::initialize();
    QGuiApplication app(argc, argv);
    QGuiApplication::setOrganizationName(QStringLiteral("Quernstead"));
    QGuiApplication::setApplicationName(QStringLiteral("Quernstead"));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Quernstead"));
    QGuiApplication::setApplicationVersion(QStringLiteral(QS_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("quernstead"));
    // The window draws its own look; the basic style adds nothing of another desktop's.
    QQuickStyle::setStyle(QStringLiteral("Basic"));

    // Screenshots keep away from the user's settings as they do from the keyring.
    const QString snapshotDir = qEnvironmentVariable("QUERNSTEAD_SNAPSHOT_DIR");
    QTemporaryDir snapshotSettings;
    if (!snapshotDir.isEmpty())
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, snapshotSettings.path());

    AppStore& store = AppStore::shared();
    QQmlApplicationEngine engine;
    load(engine, store);
    auto* window = engine.rootObjects().isEmpty()
                       ? nullptr
                       : qobject_cast<QQuickWindow*>(engine.rootObjects().constFirst());
    if (!window)
        return 1;

    if (!snapshotDir.isEmpty()) {
        window->resize(defaultSize);
        window->show();
        SnapshotRunner snapshots(engine, *window, store, snapshotDir);
        QTimer::singleShot(0, &snapshots, &SnapshotRunner::start);
        return QGuiApplication::exec();
    }

    QSettings settings;
    window->resize(settings.value(sizeKey, defaultSize).toSize().expandedTo(QSize(720, 480)));
    window->show();
    // Files handed over by the desktop (an .eml or .mbox opened with the program) are imported.
    std::vector<std::filesystem::path> files;
    for (const QString& argument : QCoreApplication::arguments().mid(1))
        files.emplace_back(argument.toStdString());
    QTimer::singleShot(0, &store, [&store, &engine, files] {
        store.reloadArchive();
        store.startScheduler();
        if (brindle::Updater* updates = updater(engine))
            updates->start();
        if (!files.empty())
            store.importFiles(files);
    });
    const int status = QGuiApplication::exec();
    settings.setValue(sizeKey, window->size());
    finishBackup(store);
    return status;
}

} // namespace qs
