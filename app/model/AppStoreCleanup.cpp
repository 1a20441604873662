// The walk that frees server space: survey and paced verification, release, and the summary.
// Each operation runs on a worker thread of its own with its own connection; every write to
// the model happens on the main thread.

#include "model/AppStore.h"

#include "cleanup/Cleaner.h"
#include "model/Credentials.h"
#include "model/MainThread.h"
#include "model/VerifyPacing.h"
#include "support/Cancellation.h"

#include <QLocale>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace qs {

namespace {

// The keychain's answer, or the sheet's words for why there is none.
std::optional<std::string> passwordOrError(const MailAccount& account, CleanupModel& cleanup) {
    try {
        if (auto password = Credentials::password(account)) {
            return password;
        }
        cleanup.setError(FriendlyError::Message{"No saved password for " + account.label,
                                                "Remove the account and add it again."});
    } catch (...) {
        cleanup.setError(FriendlyError::describe(std::current_exception(), account.server.host));
    }
    return std::nullopt;
}

} // namespace

void AppStore::setShowFreeUp(bool show) {
    if (show != showFreeUp_) {
        showFreeUp_ = show;
        emit showFreeUpChanged();
    }
}

void AppStore::resetCleanup() {
    cleanupTask_.reset();
    auto& c = *cleanup_;
    c.setStage(CleanupStage::choose);
    c.setPlan(std::nullopt);
    c.setError(std::nullopt);
    c.setResult(std::nullopt);
    c.setBusy(false);
    c.setChecked(0);
    c.setReleased(std::nullopt);
}

void AppStore::checkCleanup(const MailAccount& account, const std::string& mailbox, Date before) {
    resetCleanup();
    auto password = passwordOrError(account, *cleanup_);
    if (!password) {
        return;
    }
    cleanup_->setBusy(true);
    cleanup_->setStage(CleanupStage::verify);

    QPointer<AppStore> store(this);
    auto stop = cleanupTask_.start();
    std::thread([store, cleaner = Cleaner(layout_, account, *password), mailbox, before, stop,
                 host = account.server.host] {
        try {
            CleanupPlan plan = cleaner.survey(mailbox, before, stop);
            if (!stop.stop_requested()) {
                MainThread::post(store, [plan](AppStore& s) { s.cleanup_->setPlan(plan); });
                verifyProgressively(store, std::move(plan), cleaner.layout, stop);
            }
        } catch (...) {
            if (!stop.stop_requested()) {
                auto message = FriendlyError::describe(std::current_exception(), host);
                MainThread::post(store, [message](AppStore& s) { s.cleanup_->setError(message); });
            }
        }
        MainThread::post(store, [stop](AppStore& s) {
            // A newer operation owns `busy` once this one was cancelled.
            if (!stop.stop_requested()) {
                s.cleanup_->setBusy(false);
            }
        });
    }).detach();
}

void AppStore::verifyProgressively(QPointer<AppStore> store, CleanupPlan plan,
                                   const ArchiveLayout& layout, std::stop_token stop) {
    MainThread::post(store, [](AppStore& s) { s.cleanup_->setChecked(0); });
    const auto n = static_cast<int64_t>(plan.items.size());
    if (n == 0) {
        return;
    }
    const auto pacing = VerifyPacing::of(n);
    std::mutex lock;
    std::condition_variable_any woken;
    for (int64_t start = 0, end = std::min(pacing.batch, n); start < n && !stop.stop_requested();
         start = end, end = std::min(end + pacing.batch, n)) {
        std::vector<CleanupItem::Status> statuses;
        for (int64_t i = start; i < end; ++i) {
            statuses.push_back(Cleaner::verify(plan.items[size_t(i)], layout));
        }
        MainThread::post(store, [start, end, statuses = std::move(statuses), stop](AppStore& s) {
            if (stop.stop_requested()) {
                return;
            }
            s.cleanup_->setStatuses(size_t(start), statuses);
            s.cleanup_->setChecked(static_cast<int>(end));
        });
        // The pause only paces the ledger for the eye; a stop ends it at once.
        std::unique_lock guard(lock);
        woken.wait_for(guard, stop, pacing.pause, [] { return false; });
    }
}

void AppStore::cancelCleanup() {
    cleanupTask_.cancel();
    if (cleanup_->stage() == CleanupStage::verify && !cleanup_->released()) {
        cleanup_->setBusy(false);
        cleanup_->setStage(CleanupStage::choose);
    }
}

void AppStore::runCleanup(const MailAccount& account) {
    if (!cleanup_->plan()) {
        return;
    }
    auto password = passwordOrError(account, *cleanup_);
    if (!password) {
        return;
    }
    CleanupPlan plan = *cleanup_->plan();
    cleanup_->setBusy(true);
    cleanup_->setError(std::nullopt);
    cleanup_->setReleased(CleanupModel::Released{0, int64_t(plan.verified().size())});

    QPointer<AppStore> store(this);
    auto stop = cleanupTask_.start();
    std::thread([store, cleaner = Cleaner(layout_, account, *password), plan, account, stop] {
        try {
            int64_t released = cleaner.execute(
                plan,
                [store](int64_t done, int64_t total) {
                    MainThread::post(store, [done, total](AppStore& s) {
                        s.cleanup_->setReleased(CleanupModel::Released{done, total});
                    });
                },
                stop);
            MainThread::post(store, [released, plan, account](AppStore& s) {
                s.finishCleanup(released, plan, account, false);
                s.cleanup_->setBusy(false);
            });
        } catch (const CleanupError& error) {
            if (error.kind() == CleanupError::Kind::stopped) {
                MainThread::post(store, [error, plan, account](AppStore& s) {
                    s.cleanup_->setReleased(
                        CleanupModel::Released{error.released(), error.total()});
                    s.cleanup_->setError(FriendlyError::Message{
                        error.problem() ? "The server reported a problem" : "Stopped",
                        error.description()});
                    if (error.released() >= 1) {
                        s.finishCleanup(error.released(), plan, account, true);
                    }
                    s.cleanup_->setBusy(false);
                });
            } else {
                auto message =
                    FriendlyError::describe(std::current_exception(), account.server.host);
                MainThread::post(store, [message](AppStore& s) {
                    s.cleanup_->setError(message);
                    s.cleanup_->setBusy(false);
                });
            }
        } catch (...) {
            auto message = FriendlyError::describe(std::current_exception(), account.server.host);
            MainThread::post(store, [message](AppStore& s) {
                s.cleanup_->setError(message);
                s.cleanup_->setBusy(false);
            });
        }
    }).detach();
}

void AppStore::finishCleanup(int64_t released, const CleanupPlan& plan, const MailAccount& account,
                             bool partial) {
    const auto verified = plan.verified();
    int64_t bytes = 0;
    for (size_t i = 0; i < verified.size() && int64_t(i) < released; ++i) {
        bytes += verified[i].serverSize;
    }
    QLocale locale;
    QString sentence =
        QStringLiteral("%1 message%2 · %3 released from %4 › %5. Your verified copies stay in "
                       "the vault.")
            .arg(locale.toString(qlonglong(released)), released == 1 ? "" : "s",
                 locale.formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat),
                 QString::fromStdString(account.label), QString::fromStdString(plan.displayName));
    cleanup_->setResult(sentence.toStdString());
    if (!partial) {
        cleanup_->setStage(CleanupStage::done);
        showToast(QStringLiteral("Released %1 from the server · copies safe in the vault")
                      .arg(locale.toString(qlonglong(released))),
                  QStringLiteral("checkmark.shield.fill"), QStringLiteral("seal"));
    }
}

} // namespace qs
