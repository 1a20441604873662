#include "ReaderActions.h"

#include "model/AppStore.h"
#include "model/AttachmentFiles.h"

#include <QDesktopServices>

namespace qs {

namespace {

const MailAttachment* attachment(const AppStore& store, qlonglong id) {
    const auto& open = store.openMessage();
    if (!open)
        return nullptr;
    for (const auto& a : open->parsed.attachments)
        if (a.id == id)
            return &a;
    return nullptr;
}

} // namespace

ReaderActions::ReaderActions(AppStore& store, QObject* parent) : QObject(parent), store_(store) {}

void ReaderActions::preview(qlonglong id) const {
    const MailAttachment* a = attachment(store_, id);
    if (!a)
        return;
    if (auto url = AttachmentFiles::temporaryURL(*a, store_.openMessage()->record.path))
        QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(url->string())));
}

QVariantMap ReaderActions::save(qlonglong id, const QUrl& target) const {
    const MailAttachment* a = attachment(store_, id);
    if (!a || !target.isLocalFile())
        return {};
    const QString name = QString::fromStdString(a->filename);
    if (auto error = AttachmentFiles::write(*a, target.toLocalFile().toStdString())) {
        return {{"title", QStringLiteral("Couldn’t save “%1”").arg(name)},
                {"text", QString::fromStdString(*error) +
                             QStringLiteral("\n\nTry another folder, such as Downloads or your "
                                            "Desktop.")}};
    }
    store_.showToast(QStringLiteral("Saved “%1”").arg(target.fileName()),
                     QStringLiteral("arrow.down.circle.fill"), QStringLiteral("seal"));
    return {};
}

QString ReaderActions::filename(qlonglong id) const {
    const MailAttachment* a = attachment(store_, id);
    return a ? QString::fromStdString(a->filename) : QString();
}

} // namespace qs
