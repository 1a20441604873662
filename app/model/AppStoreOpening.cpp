// The reading half of AppStore: turning the selected path into the message the reader shows,
// off the main thread, and the sizes that prove each local copy.

#include "model/AppStore.h"

#include "model/ReaderContent.h"
#include "support/FileIO.h"

#include <QCoreApplication>
#include <QPointer>
#include <QProcess>
#include <QThreadPool>
#include <QUrl>

namespace qs {

void AppStore::openSelected() {
    auto clear = [this] {
        if (openMessage_) {
            openMessage_.reset();
            emit openMessageChanged();
        }
    };
    if (!selectedPath_) {
        clear();
        return;
    }
    const RecordRef* found = catalog_->byPath(*selectedPath_);
    if (!found) {
        clear();
        return;
    }
    // Everything the task needs is copied here: it touches nothing of the store.
    MessageRecord record = **found;
    auto file = layout_.url(record.path);
    auto size = serverSizes_.find(record.path);
    std::optional<int64_t> serverSize;
    if (size != serverSizes_.end()) {
        serverSize = size->second;
    }
    QPointer<AppStore> store(this);
    QThreadPool::globalInstance()->start(
        [store, file, record = std::move(record), serverSize, catalog = catalog_]() mutable {
            std::string data;
            try {
                data = FileIO::read(file);
            } catch (const std::exception&) {
                return; // the reader keeps what it shows
            }
            std::string path = record.path;
            auto message = std::make_shared<OpenMessage>(
                OpenMessage::build(std::move(data), std::move(record), serverSize,
                                   catalog->knownDomains, catalog->knownNames));
            bool isHtml = false;
            auto document =
                QString::fromStdString(ReaderContent::bodyDocument(message->parsed, isHtml));
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [store, path, message, document, isHtml] {
                    // Only the latest selection reaches the reader, whatever order tasks end in.
                    if (store && store->selectedPath_ == path) {
                        store->openMessage_ = std::move(*message);
                        store->openDocument_ = document;
                        store->openIsHtml_ = isHtml;
                        emit store->openMessageChanged();
                    }
                },
                Qt::QueuedConnection);
        });
}

void AppStore::loadServerSizes() {
    serverSizes_ = readServerSizes(layout_, accounts_);
}

std::map<std::string, int64_t> AppStore::readServerSizes(const ArchiveLayout& layout,
                                                         const std::vector<MailAccount>& accounts) {
    std::map<std::string, int64_t> sizes;
    for (const auto& account : accounts) {
        AccountSyncState state;
        try {
            state = layout.loadSync(account);
        } catch (const std::exception&) {
            continue;
        }
        for (const auto& [name, folder] : state.folders) {
            if (!folder.sizes) {
                continue;
            }
            for (const auto& [uid, path] : folder.files) {
                if (auto size = folder.sizes->find(uid); size != folder.sizes->end()) {
                    sizes[path] = size->second;
                }
            }
        }
    }
    return sizes;
}

void AppStore::allowImages(const QString& path) {
    if (allowImagesFor_.insert(path.toStdString()).second && openMessage_) {
        emit openMessageChanged();
    }
}

void AppStore::revealSelected() {
    if (selectedPath_) {
        revealPath(QString::fromStdString(*selectedPath_));
    }
}

void AppStore::revealPath(const QString& path) {
    const auto url = layout_.url(path.toStdString());
    auto file = QString::fromStdString(url.string());
    auto folder = QString::fromStdString(url.parent_path().string());
    // The file manager's D-Bus interface selects the file; without a file manager that
    // answers it, the folder is opened instead.
    auto* process = new QProcess(this);
    connect(process, &QProcess::finished, this, [process, folder](int code, QProcess::ExitStatus) {
        if (code != 0) {
            QProcess::startDetached(QStringLiteral("xdg-open"), {folder});
        }
        process->deleteLater();
    });
    connect(process, &QProcess::errorOccurred, this, [process, folder](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart) {
            QProcess::startDetached(QStringLiteral("xdg-open"), {folder});
            process->deleteLater();
        }
    });
    process->start(QStringLiteral("dbus-send"),
                   {QStringLiteral("--session"), QStringLiteral("--print-reply"),
                    QStringLiteral("--dest=org.freedesktop.FileManager1"),
                    QStringLiteral("/org/freedesktop/FileManager1"),
                    QStringLiteral("org.freedesktop.FileManager1.ShowItems"),
                    QStringLiteral("array:string:") + QUrl::fromLocalFile(file).toString(),
                    QStringLiteral("string:")});
}

QVariant AppStore::openMessageForView() const {
    if (!openMessage_) {
        return {};
    }
    QVariantMap view =
        ReaderContent::describe(*openMessage_, allowImagesFor_.contains(openMessage_->record.path));
    view.insert("document", openDocument_);
    view.insert("isHtml", openIsHtml_);
    return view;
}

} // namespace qs
