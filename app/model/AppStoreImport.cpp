// Bringing .eml and mbox files into the vault, off the main thread, with one closing report.

#include "model/AppStore.h"

#include "backup/Importer.h"
#include "model/MainThread.h"
#include "support/FileIO.h"

#include <thread>

namespace qs {

namespace {

std::string lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c + 32);
        }
    }
    return text;
}

} // namespace

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
        int64_t imported = 0;
        int64_t skipped = 0;
        for (const auto& file : files) {
            std::string data;
            try {
                data = FileIO::read(file);
            } catch (const std::exception&) {
                ++skipped; // a file that can't be read counts as one
                continue;
            }
            auto extension = lower(file.extension().string());
            std::vector<std::string> messages;
            std::string collection;
            if (extension == ".mbox" || extension == ".mbx" || data.starts_with("From ")) {
                messages = Importer::splitMbox(data);
                collection = file.stem().string();
            } else {
                messages.push_back(std::move(data));
                collection = Importer::looseMessages;
            }
            try {
                auto stored = Importer::store(messages, collection, layout);
                imported += static_cast<int64_t>(stored.size());
                skipped += static_cast<int64_t>(messages.size() - stored.size());
            } catch (const std::exception&) {
                skipped += static_cast<int64_t>(messages.size());
            }
        }
        MainThread::post(store, [imported, skipped](AppStore& s) {
            QLocale locale;
            QString message = imported == 1 ? QStringLiteral("Imported 1 message")
                                            : QStringLiteral("Imported %1 messages")
                                                  .arg(locale.toString(qlonglong(imported)));
            if (skipped > 0) {
                message += QStringLiteral(" · %1 skipped").arg(locale.toString(qlonglong(skipped)));
            }
            s.setImportMessage(message);
            if (imported > 0 || skipped == 0) {
                s.showToast(s.importMessage_.value_or(QStringLiteral("Imported")),
                            QStringLiteral("tray.and.arrow.down.fill"), QStringLiteral("seal"));
            } else {
                s.showToast(
                    skipped == 1
                        ? QStringLiteral("Nothing imported — 1 file wasn’t a valid email")
                        : QStringLiteral("Nothing imported — %1 files weren’t a valid email")
                              .arg(skipped),
                    QStringLiteral("exclamationmark.triangle.fill"), QStringLiteral("caution"));
            }
            s.reloadArchive();
            emit s.importFinished();
        });
    }).detach();
}

} // namespace qs
