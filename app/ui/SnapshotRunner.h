#pragma once

#include <QObject>
#include <QString>
#include <QTemporaryDir>
#include <filesystem>
#include <functional>
#include <vector>

class QQmlApplicationEngine;
class QQuickWindow;

namespace qs {

class AppStore;

/// Renders every screen and state of the window to "{dir}/{light|dark}-{name}.png" at the
/// window's fixed size, then quits. Each shot puts the store and the window into its state,
/// waits for a vault scan when it switched vaults, lets the animations settle, then grabs the
/// window. The empty-vault states are shown on scratch vaults made from the real one: one with
/// its accounts and no mail, one with its accounts and a few harmless messages, one empty.
class SnapshotRunner : public QObject {
    Q_OBJECT

public:
    SnapshotRunner(QQmlApplicationEngine& engine, QQuickWindow& window, AppStore& store,
                   QString dir);

    void start();

private:
    struct Shot {
        QString name;
        /// Puts the window in the state; true when it switched vaults and must wait for the scan.
        std::function<bool()> prepare;
    };

    void planShots(bool dark);
    void makeScratchVaults();
    void next();
    void settleThenGrab(const QString& name);
    QObject* find(const QString& objectName) const;
    /// The sheet of this QML type, by its object name ("addAccountSheet" for AddAccountSheet);
    /// a window that doesn't hold one gets one made for the shot.
    QObject* sheet(const QString& type);
    void planSheetShots(bool dark);
    std::filesystem::path scratchRoot() const;
    void fillQuietVault();
    void useVault(const std::filesystem::path& root);
    void planGuideAndSettingsShots(const QString& prefix);
    /// The Software Update window in each phase of the updater.
    void planUpdateShots(const QString& prefix);
    /// The reader: a suspicious message with every note, its provider's checks, a newsletter
    /// with its pictures asked for (SnapshotReaderShots.cpp).
    void planReaderShots(const QString& prefix);
    /// The welcome guide and the Settings window: the main window's own when it holds them,
    /// else made here, so that they are pictured either way.
    QObject* guide();
    QQuickWindow* settingsWindow();

    QQmlApplicationEngine& engine_;
    QQuickWindow& window_;
    AppStore& store_;
    QString dir_;
    std::filesystem::path vault_;
    QTemporaryDir scratch_;
    std::vector<Shot> shots_;
    size_t position_ = 0;
    bool waitingForScan_ = false;
    bool quietFilled_ = false;
    QString pending_;
    QObject* guide_ = nullptr;
    QQuickWindow* settings_ = nullptr;
    /// The window the next grab takes; the main window when null.
    QQuickWindow* grabTarget_ = nullptr;
};

} // namespace qs
