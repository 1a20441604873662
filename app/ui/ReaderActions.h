#pragma once

#include <QObject>
#include <QUrl>
#include <QVariant>

namespace qs {

class AppStore;

/// What the reader does with the open message's attachments, on the desktop.
class ReaderActions : public QObject {
    Q_OBJECT

public:
    /// Registered with the window's QML as the singleton `ReaderActions`.
    ReaderActions(AppStore& store, QObject* parent);

    /// Opens a scratch copy of the attachment with the desktop's default application; nothing
    /// when the copy can't be written.
    Q_INVOKABLE void preview(qlonglong id) const;
    /// Writes the attachment to `target`. On success the store shows the toast "Saved “…”";
    /// on failure the map of title and text for the alert comes back, else an empty map.
    Q_INVOKABLE QVariantMap save(qlonglong id, const QUrl& target) const;
    /// The attachment's own name, proposed in the save dialog.
    Q_INVOKABLE QString filename(qlonglong id) const;

private:
    AppStore& store_;
};

} // namespace qs
