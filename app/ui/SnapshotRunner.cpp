#include "SnapshotRunner.h"

#include "AddAccountFlow.h"
#include "FreeUpFlow.h"
#include "Motion.h"
#include "Onboarding.h"
#include "QuernsteadApp.h"
#include "Theme.h"
#include "Updater/Updater.h"
#include "model/AppStore.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQmlComponent>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>
#include <QtQml/qqml.h>
#include <utility>

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
        shots_.push_back({*name ? prefix + QLatin1String(name) : QString(), std::move(prepare)});
    };
    add("main", [this, dark] {
        singleton<Theme>(engine_, "Theme")->setDark(dark);
        // The guide opens by itself at a first launch, which this mode always is.
        singleton<Onboarding>(engine_, "Onboarding")->finish();
        if (settings_)
            settings_->hide();
        grabTarget_ = nullptr;
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
    add("", [this] {
        if (QObject* dialog = find(QStringLiteral("removeDialog")))
            QMetaObject::invokeMethod(dialog, "close");
        return false;
    });
    planReaderShots(prefix);
    planSheetShots(dark);
    add("vault-empty", [this] {
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
    add("ledger-empty", [this] {
        sheet(QStringLiteral("LedgerSheet"));
        store_.setShowBackupActivity(true);
        return false;
    });
    add("", [this] {
        store_.setShowBackupActivity(false);
        return false;
    });
    planGuideAndSettingsShots(prefix);
    planUpdateShots(prefix);
}

void SnapshotRunner::planUpdateShots(const QString& prefix) {
    using brindle::UpdatePhase;
    const brindle::UpdateFeed feed{
        "0.2.0", "https://example.org/quernstead",
        "Search finds words inside attachments.\nThe timeline scrolls more smoothly on long "
        "vaults.\nFixes a rare stall when a server drops the connection mid-backup.",
        std::nullopt,
        brindle::UpdateFeed::Download{"https://example.org/quernstead-0.2.0.zip", 1, "c2ln"}};
    const std::pair<const char*, UpdatePhase> phases[] = {
        {"checking", UpdatePhase::checking()},
        {"up-to-date", UpdatePhase::upToDate()},
        {"available", UpdatePhase::available(feed)},
        {"downloading", UpdatePhase::downloading(feed, 0.42)},
        {"ready", UpdatePhase::ready(feed)},
        {"failed",
         UpdatePhase::failed("The update’s signature didn’t match, so it wasn’t installed.")},
    };
    // The window is shown once before its first picture: its layout settles on the first show.
    shots_.push_back({QString(), [this] {
                          if (auto* window =
                                  qobject_cast<QQuickWindow*>(find(QStringLiteral("updateWindow"))))
                              window->show();
                          return false;
                      }});
    for (const auto& [name, phase] : phases)
        shots_.push_back({prefix + QStringLiteral("update-") + QLatin1String(name), [this, phase] {
                              if (settings_)
                                  settings_->hide();
                              auto* window =
                                  qobject_cast<QQuickWindow*>(find(QStringLiteral("updateWindow")));
                              brindle::Updater* updater = QuernsteadApp::updater(engine_);
                              if (!window || !updater)
                                  return false;
                              updater->preview(phase);
                              window->show();
                              grabTarget_ = window;
                              return false;
                          }});
    shots_.push_back({QString(), [this] {
                          if (auto* window =
                                  qobject_cast<QQuickWindow*>(find(QStringLiteral("updateWindow"))))
                              window->hide();
                          grabTarget_ = nullptr;
                          return false;
                      }});
}

void SnapshotRunner::planGuideAndSettingsShots(const QString& prefix) {
    const auto add = [&](const QString& name, std::function<bool()> prepare) {
        shots_.push_back({prefix + name, std::move(prepare)});
    };
    for (int page = 0; page < int(Onboarding::pages().size()); ++page)
        add(QStringLiteral("onboarding-%1").arg(page + 1), [this, page] {
            singleton<Onboarding>(engine_, "Onboarding")->open();
            if (QObject* view = guide())
                view->setProperty("page", page);
            return false;
        });
    const char* tabs[] = {"general", "accounts", "about"};
    for (int tab = 0; tab < 3; ++tab)
        add(QStringLiteral("settings-%1").arg(QLatin1String(tabs[tab])), [this, tab] {
            singleton<Onboarding>(engine_, "Onboarding")->finish();
            QQuickWindow* window = settingsWindow();
            if (!window)
                return false;
            window->setProperty("tab", tab);
            window->show();
            grabTarget_ = window;
            // The accounts are the demo vault's.
            if (tab == 0 && store_.layout().root != vault_) {
                useVault(vault_);
                return true;
            }
            return false;
        });
}

QObject* SnapshotRunner::guide() {
    if (!guide_)
        guide_ = find(QStringLiteral("onboarding"));
    if (!guide_) {
        QQmlComponent component(&engine_,
                                QUrl(QStringLiteral("qrc:/Quernstead/OnboardingView.qml")));
        guide_ = component.beginCreate(engine_.rootContext());
        if (!guide_)
            return nullptr;
        guide_->setParent(this);
        guide_->setProperty("parent", QVariant::fromValue<QObject*>(window_.contentItem()));
        component.completeCreate();
    }
    return guide_;
}

QQuickWindow* SnapshotRunner::settingsWindow() {
    if (!settings_)
        settings_ = qobject_cast<QQuickWindow*>(find(QStringLiteral("settingsWindow")));
    if (!settings_) {
        QQmlComponent component(&engine_,
                                QUrl(QStringLiteral("qrc:/Quernstead/SettingsWindow.qml")));
        settings_ = qobject_cast<QQuickWindow*>(component.create());
        if (settings_)
            static_cast<QObject*>(settings_)->setParent(this);
    }
    return settings_;
}

std::filesystem::path SnapshotRunner::scratchRoot() const {
    return std::filesystem::path(scratch_.path().toStdString());
}

void SnapshotRunner::fillQuietVault() {
    namespace fs = std::filesystem;
    // Filled once, so that the light and the dark pictures show the same vault.
    if (store_.layout().root != vault_ || std::exchange(quietFilled_, true))
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
            (grabTarget_ ? *grabTarget_ : window_)
                .grabWindow()
                .save(QDir(dir_).filePath(name + QStringLiteral(".png")));
        next();
    });
}

void SnapshotRunner::planSheetShots(bool dark) {
    const QString prefix = dark ? QStringLiteral("dark-") : QStringLiteral("light-");
    const auto add = [&](const char* name, std::function<bool()> prepare) {
        shots_.push_back({*name ? prefix + QLatin1String(name) : QString(), std::move(prepare)});
    };
    const auto flow = [this] {
        return sheet(QStringLiteral("AddAccountSheet"))->property("flow").value<AddAccountFlow*>();
    };
    add("add-account-provider", [this, flow] {
        flow();
        store_.setShowAddAccount(true);
        return false;
    });
    add("add-account-gmail", [flow] {
        flow()->choose(QStringLiteral("gmail"));
        return false;
    });
    add("add-account-custom", [flow] {
        AddAccountFlow* f = flow();
        f->reset();
        f->choose(QStringLiteral("custom"));
        f->setUsername(QStringLiteral("robin@example.org"));
        f->setPassword(QStringLiteral("not-a-real-password"));
        f->setHost(QStringLiteral("127.0.0.1"));
        // Nothing listens on port 1, so the sign-in fails at once with the real words.
        f->setPort(QStringLiteral("1"));
        f->connectToServer();
        return false;
    });
    add("add-account-folders", [flow] {
        const auto box = [](const char* name, std::vector<std::string> attributes = {}) {
            return IMAPMailbox{name, name, "/", std::move(attributes)};
        };
        flow()->presentMailboxes({box("INBOX"), box("Archive", {"\\Archive"}),
                                  box("Drafts", {"\\Drafts"}), box("Sent", {"\\Sent"}),
                                  box("Junk", {"\\Junk"}), box("Trash", {"\\Trash"}),
                                  box("Projects/Garden"), box("Projects/Harbour")});
        return false;
    });
    add("", [this] {
        store_.setShowAddAccount(false);
        return false;
    });
    add("ledger", [this] {
        sheet(QStringLiteral("LedgerSheet"));
        if (!store_.accounts().empty()) {
            // One folder through with nothing new, one with new mail, one under way; the
            // account's others show when they last ran.
            const MailAccount& account = store_.accounts().front();
            BackupProgress progress;
            progress.account = account.label;
            progress.phase = BackupProgress::downloading;
            const auto& folders = account.folders;
            for (size_t i = 0; i < folders.size() && i < 2; ++i)
                progress.completed[folders[i]] = int(i) * 12;
            if (folders.size() > 2) {
                progress.mailbox = folders[2];
                progress.folder = folders[2];
                progress.messagesDone = 1'180;
                progress.messagesTotal = 2'400;
            }
            store_.apply(progress, account.directoryName());
        }
        store_.setShowBackupActivity(true);
        return false;
    });
    add("", [this] {
        store_.setShowBackupActivity(false);
        return false;
    });
    add("free-up-choose", [this] {
        sheet(QStringLiteral("FreeUpSpaceSheet"));
        store_.setShowFreeUp(true);
        return false;
    });
    // The later steps draw a walk laid out here: the demo's server isn't running in this mode.
    const auto walk = [this](CleanupStage stage, int checked) {
        using Status = CleanupItem::Status;
        CleanupPlan plan;
        plan.mailbox = plan.displayName = "INBOX";
        plan.before = std::chrono::system_clock::now() - std::chrono::days(730);
        plan.serverSupportsUIDPlus = true;
        for (uint32_t uid = 1; uid <= 10; ++uid) {
            CleanupItem item;
            item.uid = uid;
            item.serverSize = 2'000 + uid * 3'517;
            item.date = plan.before - std::chrono::days(40 * uid);
            if (int(uid) <= checked)
                item.status = uid == 4   ? Status::notBackedUp()
                              : uid == 9 ? Status::sizeMismatch(4'100, 4'211)
                                         : Status::verified();
            plan.items.push_back(item);
        }
        CleanupModel& cleanup = store_.cleanup();
        cleanup.setPlan(plan);
        cleanup.setChecked(checked);
        cleanup.setBusy(checked < 10);
        cleanup.setStage(stage);
    };
    add("free-up-verify", [walk] {
        walk(CleanupStage::verify, 7);
        return false;
    });
    add("free-up-release", [this, walk] {
        walk(CleanupStage::release, 10);
        if (auto* flow =
                sheet(QStringLiteral("FreeUpSpaceSheet"))->property("flow").value<QObject*>())
            flow->setProperty("confirmation", QStringLiteral("RELEASE 8"));
        return false;
    });
    add("free-up-done", [this, walk] {
        walk(CleanupStage::done, 10);
        if (!store_.accounts().empty() && store_.cleanup().plan())
            store_.finishCleanup(8, *store_.cleanup().plan(), store_.accounts().front(), false);
        return false;
    });
    add("", [this] {
        store_.setShowFreeUp(false);
        store_.resetCleanup();
        store_.dismissToast();
        return false;
    });
}

QObject* SnapshotRunner::sheet(const QString& type) {
    const QString name = type.left(1).toLower() + type.mid(1);
    if (QObject* found = find(name))
        return found;
    QQmlComponent component(&engine_, QUrl(QStringLiteral("qrc:/Quernstead/%1.qml").arg(type)));
    QObject* made = component.create();
    if (!made)
        qFatal("%s", qPrintable(component.errorString()));
    made->setParent(engine_.rootObjects().value(0));
    made->setProperty("parent", QVariant::fromValue(window_.contentItem()));
    return made;
}

QObject* SnapshotRunner::find(const QString& objectName) const {
    for (QObject* root : engine_.rootObjects())
        if (QObject* found = root->findChild<QObject*>(objectName))
            return found;
    return nullptr;
}

} // namespace qs
