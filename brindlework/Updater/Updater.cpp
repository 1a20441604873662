#include "Updater/Updater.h"

#include "Brindle/InstallScript.h"
#include "Brindle/UpdateError.h"
#include "Brindle/UpdateLogic.h"
#include "Brindle/UpdateStaging.h"
#include "Brindle/UpdateWords.h"
#include "Updater/ArchiveFetch.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QNetworkReply>
#include <QPointer>
#include <QProcess>
#include <QSettings>
#include <QThreadPool>

#include <sys/stat.h>
#include <unistd.h>

namespace brindle {

namespace {

namespace fs = std::filesystem;

constexpr auto autoUpdateKey = "BrindleAutoUpdate";
constexpr auto announcedPrefix = "BrindleAnnounced-";
constexpr int firstCheckMilliseconds = 8'000;
constexpr int checkEveryMilliseconds = 21'600'000; // 6 hours
constexpr int feedTimeoutMilliseconds = 20'000;

// Writable by this user. Root may write anywhere, so a folder whose mode grants nobody write
// access counts as read-only too: someone made it so on purpose.
bool writable(const fs::path& path) {
    struct stat status {};
    return ::access(path.c_str(), W_OK) == 0 && ::stat(path.c_str(), &status) == 0 &&
           (status.st_mode & 0222) != 0;
}

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

} // namespace

Updater::Updater(UpdaterConfiguration configuration, QObject* parent)
    : QObject(parent), configuration_(std::move(configuration)) {
    automaticallyDownloads_ = QSettings().value(autoUpdateKey, true).toBool();
    timer_.setInterval(checkEveryMilliseconds);
    connect(&timer_, &QTimer::timeout, this, [this] { check(false); });
}

void Updater::start() {
    if (!active())
        return;
    if (!quitHooked_) {
        quitHooked_ = true;
        connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this,
                &Updater::installOnQuit);
    }
    QTimer::singleShot(firstCheckMilliseconds, this, [this] { check(false); });
    timer_.start();
}

void Updater::check(bool userInitiated) {
    if (!active())
        return;
    using enum UpdatePhase::Kind;
    if (phase_.kind == downloading || phase_.kind == ready) {
        if (userInitiated)
            emit windowRequested();
        return;
    }
    setPhase(UpdatePhase::checking());
    if (userInitiated)
        emit windowRequested();

    QNetworkRequest request(configuration_.feedURL);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      text(configuration_.appName + "/" + configuration_.currentVersion));
    request.setTransferTimeout(feedTimeoutMilliseconds);
    QNetworkReply* reply = network_.get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, userInitiated] {
        reply->deleteLater();
        const bool ok = reply->error() == QNetworkReply::NoError &&
                        reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 200;
        handleFeed(ok ? reply->readAll() : QByteArray(), ok, userInitiated);
    });
}

void Updater::handleFeed(const QByteArray& body, bool ok, bool userInitiated) {
    const auto feed = ok ? UpdateFeed::decode(body.toStdString()) : std::nullopt;
    if (!feed) {
        setPhase(userInitiated ? UpdatePhase::failed("Couldn’t check for updates. Check your "
                                                     "internet connection and try again.")
                               : UpdatePhase::idle());
        return;
    }
    lastChecked_ = QDateTime::currentDateTimeUtc();
    if (!UpdateLogic::isNewer(feed->version, configuration_.currentVersion) ||
        !UpdateLogic::systemSupports(feed->minimumSystemVersion, configuration_.system)) {
        setPhase(UpdatePhase::upToDate());
        return;
    }
    if (automaticallyDownloads_ && feed->download && canInstallInPlace()) {
        download(*feed);
        return;
    }
    setPhase(UpdatePhase::available(*feed));
    if (!userInitiated && shouldAnnounce(*feed))
        emit windowRequested();
}

bool Updater::shouldAnnounce(const UpdateFeed& feed) {
    QSettings settings;
    const QString key = QLatin1String(announcedPrefix) + text(feed.version);
    if (settings.value(key, false).toBool())
        return false;
    settings.setValue(key, true);
    return true;
}

void Updater::download(const UpdateFeed& feed) {
    if (!feed.download)
        return;
    const QUrl url(text(feed.download->url), QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty())
        return;
    setPhase(UpdatePhase::downloading(feed, 0));
    const auto progress = [this, feed](double fraction) {
        if (phase_.kind == UpdatePhase::Kind::downloading && phase_.feed == feed)
            setPhase(UpdatePhase::downloading(feed, fraction));
    };
    const auto done = [this, feed](QByteArray zip, const UpdateError* error) {
        if (error)
            return setPhase(UpdatePhase::failed(error->message));
        if (zip.size() != feed.download->length)
            return setPhase(UpdatePhase::failed("The download was incomplete."));
        if (!configuration_.publicKey ||
            !UpdateLogic::verify(std::string_view(zip.constData(), size_t(zip.size())),
                                 feed.download->edSignature, *configuration_.publicKey))
            return setPhase(UpdatePhase::failed(
                "The update’s signature didn’t match, so it wasn’t installed."));
        stageAndValidate(feed, std::move(zip));
    };
    new ArchiveFetch(network_, url, feed.download->length, progress, done, this);
}

void Updater::stageAndValidate(const UpdateFeed& feed, QByteArray zip) {
    const std::string identifier =
        configuration_.bundle ? configuration_.bundle->identifier : std::string();
    const fs::path base = UpdateStaging::baseDirectory(configuration_.caches, identifier);
    const auto publicKey = configuration_.publicKey;
    QPointer<Updater> self(this);
    QThreadPool::globalInstance()->start(
        [self, feed, zip = std::move(zip), base, identifier, publicKey] {
            std::optional<fs::path> staged;
            std::string failure;
            try {
                staged = UpdateStaging::stage(std::string_view(zip.constData(), size_t(zip.size())),
                                              feed.version, base);
                UpdateStaging::validate(*staged, feed.version, identifier, publicKey);
            } catch (const UpdateError& error) {
                failure = error.message;
            } catch (const std::exception& error) {
                failure = std::string("The update couldn’t be downloaded. ") + error.what();
            }
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [self, feed, staged, failure] {
                    if (!self)
                        return;
                    if (!failure.empty())
                        return self->setPhase(UpdatePhase::failed(failure));
                    self->stagedApp_ = staged;
                    self->setPhase(UpdatePhase::ready(feed));
                    if (self->shouldAnnounce(feed))
                        emit self->windowRequested();
                },
                Qt::QueuedConnection);
        });
}

void Updater::downloadAvailable() {
    if (phase_.kind == UpdatePhase::Kind::available)
        download(phase_.feed);
}

void Updater::installAndRelaunch() {
    relaunchAfterInstall_ = true;
    QCoreApplication::quit();
}

void Updater::openDownloadPage() {
    if (phase_.kind == UpdatePhase::Kind::available)
        QDesktopServices::openUrl(QUrl(text(phase_.feed.url)));
}

bool Updater::installOnQuit() {
    if (phase_.kind != UpdatePhase::Kind::ready || !stagedApp_ || !canInstallInPlace())
        return false;
    QStringList arguments;
    for (const std::string& argument : InstallScript::arguments(
             ::getpid(), stagedApp_->string(), configuration_.bundle->path.string(),
             relaunchAfterInstall_, configuration_.bundle->executable))
        arguments << text(argument);
    QProcess script;
    script.setProgram(QStringLiteral("/bin/sh"));
    script.setArguments(arguments);
    script.setStandardOutputFile(QProcess::nullDevice());
    script.setStandardErrorFile(QProcess::nullDevice());
    return script.startDetached();
}

bool Updater::canInstallInPlace() const {
    if (!configuration_.bundle)
        return false;
    const fs::path& path = configuration_.bundle->path;
    // The package manager's programs are its to replace.
    if (path.string().starts_with("/usr/"))
        return false;
    return writable(path) && writable(path.parent_path());
}

void Updater::setAutomaticallyDownloads(bool on) {
    if (on == automaticallyDownloads_)
        return;
    automaticallyDownloads_ = on;
    QSettings().setValue(autoUpdateKey, on);
    emit automaticallyDownloadsChanged();
}

void Updater::setPhase(const UpdatePhase& phase) {
    if (phase == phase_)
        return;
    phase_ = phase;
    emit phaseChanged();
}

QString Updater::phaseName() const {
    switch (phase_.kind) {
    case UpdatePhase::Kind::idle:
        return QStringLiteral("idle");
    case UpdatePhase::Kind::checking:
        return QStringLiteral("checking");
    case UpdatePhase::Kind::upToDate:
        return QStringLiteral("upToDate");
    case UpdatePhase::Kind::available:
        return QStringLiteral("available");
    case UpdatePhase::Kind::downloading:
        return QStringLiteral("downloading");
    case UpdatePhase::Kind::ready:
        return QStringLiteral("ready");
    case UpdatePhase::Kind::failed:
        return QStringLiteral("failed");
    }
    return {};
}

QString Updater::title() const {
    return text(UpdateWords::describe(phase_, configuration_.appName, configuration_.currentVersion,
                                      canInstallInPlace())
                    .title);
}

QString Updater::detail() const {
    return text(UpdateWords::describe(phase_, configuration_.appName, configuration_.currentVersion,
                                      canInstallInPlace())
                    .detail);
}

QString Updater::notes() const {
    return text(phase_.feed.notes.value_or(std::string()));
}

QStringList Updater::buttons() const {
    QStringList names;
    for (UpdateWords::Button button :
         UpdateWords::describe(phase_, configuration_.appName, configuration_.currentVersion,
                               canInstallInPlace())
             .buttons) {
        switch (button) {
        case UpdateWords::Button::later:
            names << QStringLiteral("later");
            break;
        case UpdateWords::Button::downloadAndInstall:
            names << QStringLiteral("downloadAndInstall");
            break;
        case UpdateWords::Button::openDownloadPage:
            names << QStringLiteral("openDownloadPage");
            break;
        case UpdateWords::Button::restartNow:
            names << QStringLiteral("restartNow");
            break;
        }
    }
    return names;
}

} // namespace brindle
