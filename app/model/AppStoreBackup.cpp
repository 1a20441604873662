// The side of the store that runs backups: one run at a time on a worker thread, progress
// mirrored into `backup` and `ledger`, one friendly problem per failed account, and the timer
// that starts runs by itself.

#include "model/AppStore.h"

#include "backup/BackupRunner.h"
#include "model/Credentials.h"
#include "model/MainThread.h"
#include "model/SettingsKeys.h"
#include "support/Cancellation.h"

#include <QDateTime>
#include <QSettings>
#include <algorithm>
#include <thread>

namespace qs {

namespace {

QVariant optionalText(const std::optional<std::string>& text) {
    return text ? QVariant(QString::fromStdString(*text)) : QVariant();
}

} // namespace

void AppStore::setShowBackupActivity(bool show) {
    if (show != showBackupActivity_) {
        showBackupActivity_ = show;
        emit showBackupActivityChanged();
    }
}

void AppStore::setShowAddAccount(bool show) {
    if (show != showAddAccount_) {
        showAddAccount_ = show;
        emit showAddAccountChanged();
    }
}

void AppStore::backUpAccount(const QString& id) {
    auto found = std::ranges::find(accounts_, id.toStdString(),
                                   [](const MailAccount& a) { return a.id.string(); });
    if (found != accounts_.end()) {
        backUpNow(*found);
    }
}

void AppStore::backUpNow(std::optional<MailAccount> only) {
    if (backup_.running) {
        setShowBackupActivity(true);
        return;
    }
    std::vector<MailAccount> run = only ? std::vector{*only} : accounts_;
    if (run.empty()) {
        setShowAddAccount(true);
        return;
    }
    BackupStatus next;
    next.running = true;
    next.accountCount = static_cast<int>(run.size());
    next.lastFinished = backup_.lastFinished;
    backup_ = std::move(next);
    for (const auto& account : run) {
        backupProblems_.erase(account.label);
        for (const auto& name : account.folders) {
            ledger_[account.directoryName() + "/" + name] = LedgerLine{};
        }
    }
    emit backupChanged();
    emit backupProblemsChanged();
    emit ledgerChanged();

    QPointer<AppStore> store(this);
    auto stop = backupTask_.start();
    std::thread([store, run = std::move(run), layout = layout_, stop] {
        int failures = 0;
        int64_t newTotal = 0;
        bool vaultChanged = false;
        int64_t repairedTotal = 0;
        for (size_t index = 0; index < run.size(); ++index) {
            if (stop.stop_requested()) {
                break;
            }
            const MailAccount& account = run[index];
            MainThread::post(store, [index](AppStore& s) {
                s.backup_.accountIndex = static_cast<int>(index);
                emit s.backupChanged();
            });
            try {
                // Inside the try: a keyring that can't be reached or a failing password
                // command is worded like any other failure, and isn't "no saved password".
                auto password = Credentials::password(account);
                if (!password) {
                    ++failures;
                    MainThread::post(store, [label = account.label](AppStore& s) {
                        s.setBackupProblem(label,
                                           {"No saved password",
                                            "Remove the account and add it again with a fresh "
                                            "app-specific password."});
                    });
                    continue;
                }
                BackupRunner runner(layout, account, *password);
                auto directory = account.directoryName();
                auto summary = runner.run(
                    [store, directory](const BackupProgress& progress) {
                        MainThread::post(store, [progress, directory](AppStore& s) {
                            s.apply(progress, directory);
                        });
                    },
                    stop);
                newTotal += summary.newMessages;
                vaultChanged =
                    vaultChanged || summary.newMessages + summary.relinked + summary.repaired > 0;
                repairedTotal += summary.repaired;
                MainThread::post(store, [id = account.id](AppStore& s) { s.backupSucceeded(id); });
                if (!summary.vanished.empty()) {
                    MainThread::post(store, [account, vanished = summary.vanished](AppStore& s) {
                        s.setBackupProblem(account.label, vanishedProblem(account, vanished));
                    });
                }
            } catch (const CancellationError&) {
                break;
            } catch (...) {
                ++failures;
                auto message =
                    FriendlyError::describe(std::current_exception(), account.server.host);
                MainThread::post(store, [label = account.label, message](AppStore& s) {
                    s.setBackupProblem(label, message);
                });
            }
        }
        bool cancelled = stop.stop_requested();
        MainThread::post(
            store, [failures, newTotal, repairedTotal, cancelled, vaultChanged](AppStore& s) {
                s.finishBackup(failures, newTotal, repairedTotal, cancelled, vaultChanged);
            });
    }).detach();
}

FriendlyError::Message AppStore::vanishedProblem(const MailAccount& account,
                                                 const std::vector<std::string>& vanished) {
    std::string names;
    for (const auto& name : vanished) {
        std::string shown = name;
        for (const auto& mailbox : account.knownFolders) {
            if (mailbox.name == name) {
                shown = mailbox.displayName;
            }
        }
        names += (names.empty() ? "" : ", ") + shown;
    }
    return {names + (vanished.size() == 1 ? " is" : " are") + " no longer on the server",
            "It was renamed or deleted there; its messages stay in the vault. Choose the "
            "account’s folders again to back up what it became."};
}

void AppStore::backupSucceeded(const UUID& accountId) {
    auto found = std::ranges::find(accounts_, accountId, &MailAccount::id);
    if (found != accounts_.end()) {
        found->lastBackup = std::chrono::system_clock::now();
        saveAccounts();
        emit accountsChanged();
    }
    // The index is brought up to date once, when the whole run finishes (finishBackup), not
    // per account: each rescan loads and saves the whole index.
}

void AppStore::setBackupProblem(const std::string& label, FriendlyError::Message message) {
    backupProblems_[label] = std::move(message);
    emit backupProblemsChanged();
}

void AppStore::finishBackup(int failures, int64_t newTotal, int64_t repaired, bool cancelled,
                            bool vaultChanged) {
    bool ledgerTouched = false;
    for (auto& [key, line] : ledger_) {
        if (line.running) {
            line.running = false; // `finished` stays, so an interrupted folder shows as such
            ledgerTouched = true;
        }
    }
    if (ledgerTouched) {
        emit ledgerChanged();
    }
    backup_.running = false;
    backup_.lastFinished = std::chrono::system_clock::now();
    if (failures > 0) {
        // Every entry, so with a single-account run another account's problem shows as well.
        std::string titles;
        for (const auto& [label, problem] : backupProblems_) {
            titles += (titles.empty() ? "" : "\n") + problem.title;
        }
        backup_.lastError = titles;
    } else {
        backup_.lastError.reset();
    }
    QString message = BackupStatus::closingMessage(cancelled, newTotal, QLocale(), repaired);
    backup_.lastMessage = message.toStdString();
    emit backupChanged();

    if (failures == 0) {
        if (cancelled) {
            showToast(message, QStringLiteral("stop.circle.fill"), QStringLiteral("ink2"));
        } else {
            showToast(message, QStringLiteral("checkmark.shield.fill"), QStringLiteral("seal"));
        }
    } else {
        showToast(BackupStatus::attentionMessage(failures),
                  QStringLiteral("exclamationmark.triangle.fill"), QStringLiteral("caution"));
    }
    // A failed or stopped account may have filed part of a batch without a summary to say so.
    if (vaultChanged || failures > 0 || cancelled) {
        reloadArchive();
    }
    emit backupFinished();
}

void AppStore::apply(const BackupProgress& progress, const std::string& accountDir) {
    backup_.progress = progress;
    for (const auto& [mailbox, count] : progress.completed) {
        auto& line = ledger_[accountDir + "/" + mailbox];
        if (!line.finished) {
            line = LedgerLine{false, count, count, true, count};
        }
    }
    if (!progress.mailbox.empty() && !progress.completed.contains(progress.mailbox) &&
        progress.phase != BackupProgress::done) {
        ledger_[accountDir + "/" + progress.mailbox] =
            LedgerLine{true, progress.messagesDone, progress.messagesTotal, false, 0};
    }
    emit backupChanged();
    emit ledgerChanged();
}

void AppStore::startScheduler() {
    scheduleTimer_.stop();
    scheduleTimer_.disconnect();
    scheduleTimer_.setSingleShot(false);
    scheduleTimer_.setInterval(scheduleTickSeconds * 1000);
    connect(&scheduleTimer_, &QTimer::timeout, this, [this] { checkSchedule(); });
    scheduleTimer_.start();
}

void AppStore::checkSchedule(Date now) {
    QSettings settings(SettingsKeys::organisation, SettingsKeys::application);
    if (!settings.value(SettingsKeys::scheduleEnabled, false).toBool()) {
        return;
    }
    if (backup_.running || accounts_.empty()) {
        return;
    }
    // Read raw: an unset key is 0 here (so one hour), though the settings screen shows 6.
    int hours = settings.value(SettingsKeys::scheduleHours, 0).toInt();
    std::optional<Date> earliest;
    for (const auto& account : accounts_) {
        if (account.lastBackup && (!earliest || *account.lastBackup < *earliest)) {
            earliest = account.lastBackup;
        }
    }
    if (!earliest) {
        backUpNow(); // from the distant past, any interval has passed
        return;
    }
    auto interval = std::chrono::seconds(int64_t(std::max(hours, 1)) * 3600);
    if (interval <= now - *earliest) {
        backUpNow();
    }
}

QVariantMap AppStore::backupForView() const {
    const auto& p = backup_.progress;
    return QVariantMap{
        {"running", backup_.running},
        {"accountIndex", backup_.accountIndex},
        {"accountCount", backup_.accountCount},
        {"lastMessage", optionalText(backup_.lastMessage)},
        {"lastError", optionalText(backup_.lastError)},
        {"lastFinished", backup_.lastFinished ? QVariant(QDateTime::fromSecsSinceEpoch(
                                                    unixSeconds(*backup_.lastFinished)))
                                              : QVariant()},
        {"progress", QVariantMap{{"account", QString::fromStdString(p.account)},
                                 {"folder", QString::fromStdString(p.folder)},
                                 {"phase", QString::fromStdString(p.phase)},
                                 {"messagesDone", p.messagesDone},
                                 {"messagesTotal", p.messagesTotal},
                                 {"bytesDone", qlonglong(p.bytesDone)},
                                 {"bytesTotal", qlonglong(p.bytesTotal)},
                                 {"mailbox", QString::fromStdString(p.mailbox)}}},
    };
}

QVariantMap AppStore::ledgerForView() const {
    QVariantMap map;
    for (const auto& [key, line] : ledger_) {
        map.insert(QString::fromStdString(key), QVariantMap{{"running", line.running},
                                                            {"done", line.done},
                                                            {"total", line.total},
                                                            {"finished", line.finished},
                                                            {"newMessages", line.newMessages}});
    }
    return map;
}

QVariantMap AppStore::backupProblemsForView() const {
    QVariantMap map;
    for (const auto& [label, problem] : backupProblems_) {
        map.insert(QString::fromStdString(label),
                   QVariantMap{{"title", QString::fromStdString(problem.title)},
                               {"advice", QString::fromStdString(problem.advice)}});
    }
    return map;
}

} // namespace qs
