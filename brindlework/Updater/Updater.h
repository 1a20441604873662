#pragma once

#include "Brindle/UpdatePhase.h"
#include "Updater/UpdaterConfiguration.h"

#include <QDateTime>
#include <QNetworkAccessManager>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <filesystem>
#include <optional>

namespace brindle {

/// Keeps the program current: checks the feed on a schedule, downloads a signed archive,
/// proves it, stages it in the user's caches folder and, when the program quits, starts the
/// script that swaps the bundle. Lives on the main thread; its properties are what the
/// Software Update window shows.
class Updater : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool active READ active CONSTANT)
    Q_PROPERTY(QString appName READ appName CONSTANT)
    Q_PROPERTY(QString phaseName READ phaseName NOTIFY phaseChanged)
    Q_PROPERTY(QString title READ title NOTIFY phaseChanged)
    Q_PROPERTY(QString detail READ detail NOTIFY phaseChanged)
    Q_PROPERTY(QString notes READ notes NOTIFY phaseChanged)
    Q_PROPERTY(double progress READ progress NOTIFY phaseChanged)
    /// The buttons in order: "later", "downloadAndInstall", "openDownloadPage", "restartNow".
    Q_PROPERTY(QStringList buttons READ buttons NOTIFY phaseChanged)
    Q_PROPERTY(bool automaticallyDownloads READ automaticallyDownloads WRITE
                   setAutomaticallyDownloads NOTIFY automaticallyDownloadsChanged)

public:
    /// Reads the user's automatic-download setting ("BrindleAutoUpdate"). Starts nothing.
    explicit Updater(UpdaterConfiguration configuration, QObject* parent = nullptr);

    /// With a feed: installs at quit, checks 8 seconds from now, then every 6 hours.
    void start();
    /// One feed check. While downloading or ready it only brings the window forward, when
    /// the user asked. A silent check that fails ends idle, never seen.
    Q_INVOKABLE void check(bool userInitiated);
    /// Downloads, proves and stages the feed's archive; nothing without a download.
    void download(const UpdateFeed& feed);
    /// The window's "Download & Install": downloads the available version.
    Q_INVOKABLE void downloadAvailable();
    /// Installs the ready update and starts it again: quits the program.
    Q_INVOKABLE void installAndRelaunch();
    Q_INVOKABLE void openDownloadPage();
    /// On quit: with a ready, proved update and a bundle that can be replaced, starts the
    /// install script and returns true. It doesn't wait for the script.
    bool installOnQuit();

    /// Whether this program can replace itself: a bundle of its own, outside the package
    /// manager's folders, that the user can write, in a folder the user can write.
    bool canInstallInPlace() const;

    bool active() const { return configuration_.feedURL.isValid(); }
    const UpdatePhase& phase() const { return phase_; }
    const std::optional<QDateTime>& lastChecked() const { return lastChecked_; }
    const std::optional<std::filesystem::path>& stagedApp() const { return stagedApp_; }
    bool automaticallyDownloads() const { return automaticallyDownloads_; }
    void setAutomaticallyDownloads(bool on);

    QString appName() const { return QString::fromStdString(configuration_.appName); }
    QString phaseName() const;
    QString title() const;
    QString detail() const;
    QString notes() const;
    double progress() const { return phase_.progress; }
    QStringList buttons() const;

    /// Shows a phase as it would stand, for the screenshots of the window.
    void preview(const UpdatePhase& phase) { setPhase(phase); }

signals:
    void phaseChanged();
    void automaticallyDownloadsChanged();
    /// The Software Update window should come forward.
    void windowRequested();

private:
    void setPhase(const UpdatePhase& phase);
    void handleFeed(const QByteArray& body, bool ok, bool userInitiated);
    void stageAndValidate(const UpdateFeed& feed, QByteArray zip);
    /// Once per version: true the first time, and remembers it.
    bool shouldAnnounce(const UpdateFeed& feed);

    UpdaterConfiguration configuration_;
    UpdatePhase phase_;
    bool automaticallyDownloads_ = true;
    std::optional<QDateTime> lastChecked_;
    std::optional<std::filesystem::path> stagedApp_;
    bool relaunchAfterInstall_ = false;
    QTimer timer_;
    bool quitHooked_ = false;
    QNetworkAccessManager network_;
};

} // namespace brindle
