// Bringing .eml and mbox files into the vault, off the main thread, with one closing report.

#include "model/AppStore.h"

#include "backup/ImportBatch.h"
#include "model/FriendlyError.h"
#include "model/ImportWords.h"
#include "model/MainThread.h"
#include "vault/VaultLock.h"

#include <optional>
#include <thread>

namespace qs {

void AppStore::setImportMessage(std::optional<QString> message) {
    if (message != importMessage_) {
        importMessage_ = std::move(message);
        emit importMessageChanged();
    }
}

QVariant AppStore::importMessageForView() const {
    return importMessage_ ? QVariant(*importMessage_) : QVariant();
}

void AppStore::importFileUrls(const QList<QUrl>& urls) {
    std::vector<std::filesystem::path> files;
    for (const QUrl& url : urls) {
        if (url.isLocalFile())
            files.emplace_back(url.toLocalFile().toStdString());
    }
    importFiles(files);
}

void AppStore::importFiles(const std::vector<std::filesystem::path>& files) {
    setImportMessage(QStringLiteral("Importing…"));
    QPointer<AppStore> store(this);
    std::thread([store, files, layout = layout_] {
        // One writer per vault: a backup or another import elsewhere must finish first.
        std::optional<VaultLock> lock;
        try {
            lock.emplace(layout, "import");
        } catch (...) {
            auto problem = FriendlyError::describe(std::current_exception(), std::nullopt);
            MainThread::post(store, [problem](AppStore& s) {
                s.setImportMessage(QString::fromStdString(problem.title + ". " + problem.advice));
                emit s.importFinished();
            });
            return;
        }
        int64_t imported = 0;
        int64_t skipped = 0;
        std::vector<ImportOutcome> outcomes;
        ImportBatch batch(layout);
        for (const auto& file : files) {
            outcomes.push_back(batch.add(file));
            imported += outcomes.back().imported;
            skipped += outcomes.back().skipped;
        }
        // The new files reach the disk before the index, re-read below, records them.
        try {
            batch.finish();
        } catch (const std::system_error& failure) {
            ImportOutcome unflushed;
            unflushed.path = layout.root;
            unflushed.reason = ImportOutcome::Skip::notWritten;
            unflushed.error = failure.code();
            outcomes.push_back(std::move(unflushed));
        }
        std::erase_if(outcomes, [](const ImportOutcome& outcome) {
            return outcome.reason == ImportOutcome::Skip::none;
        });
        // Let go before telling, so that whatever the news starts finds the vault free.
        lock.reset();
        MainThread::post(store, [imported, skipped, outcomes](AppStore& s) {
            QLocale locale;
            QString message = imported == 1 ? QStringLiteral("Imported 1 message")
                                            : QStringLiteral("Imported %1 messages")
                                                  .arg(locale.toString(qlonglong(imported)));
            if (skipped > 0) {
                message += QStringLiteral(" · %1 skipped").arg(locale.toString(qlonglong(skipped)));
            }
            s.importOutcomes_ = outcomes;
            s.setImportMessage(message);
            if (imported > 0 || skipped == 0) {
                s.showToast(s.importMessage_.value_or(QStringLiteral("Imported")),
                            QStringLiteral("tray.and.arrow.down.fill"), QStringLiteral("seal"));
            } else {
                s.showToast(ImportWords::nothingImported(outcomes, skipped),
                            QStringLiteral("exclamationmark.triangle.fill"),
                            QStringLiteral("caution"));
            }
            s.reloadArchive();
            emit s.importFinished();
        });
    }).detach();
}

} // namespace qs
