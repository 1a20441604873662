#include "Updater/UpdaterConfiguration.h"

#include <QCoreApplication>
#include <QStandardPaths>

namespace brindle {

UpdaterConfiguration UpdaterConfiguration::running(const QString& feedURL,
                                                   const QString& publicKey) {
    UpdaterConfiguration configuration;
    if (!feedURL.isEmpty())
        configuration.feedURL = QUrl(feedURL);
    if (!publicKey.isEmpty())
        configuration.publicKey = publicKey.toStdString();
    configuration.currentVersion = QCoreApplication::applicationVersion().toStdString();
    configuration.appName = QCoreApplication::applicationName().toStdString();
    configuration.bundle =
        AppBundle::containing(QCoreApplication::applicationFilePath().toStdString());
    configuration.caches =
        QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation).toStdString();
    configuration.system = UpdateLogic::runningSystem();
    return configuration;
}

} // namespace brindle
