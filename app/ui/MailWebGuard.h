#pragma once

#include "safety/HTMLReport.h"

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

#include <vector>

#include <QQuickWebEngineProfile>

namespace qs {

class MailScheme;
class RemoteBlocker;

/// The set-up behind one message view: a profile that keeps nothing (off the record, no
/// cookies, no cache, no spell-check downloads) with the `RemoteBlocker` in front of it, the
/// choice of what to load, and the navigation policy. Blocking never fails open: without the
/// blocker an HTML message is shown as its text.
class MailWebGuard : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QQuickWebEngineProfile* profile READ profile CONSTANT)
    Q_PROPERTY(QVariantList warnings READ warnings WRITE setWarnings NOTIFY warningsChanged)

public:
    explicit MailWebGuard(QObject* parent = nullptr);

    QQuickWebEngineProfile* profile() const { return profile_; }
    QVariantList warnings() const { return warningsForView_; }
    void setWarnings(const QVariantList& warnings);

    /// The document to load for this body, or null when the view already shows it: the key is
    /// the document with `allowRemote` (and `dark`), so repeated updates never reload the page.
    /// Sets the blocker's rules before the caller loads. A text document follows `dark`, the
    /// window's appearance, which the engine itself isn't told.
    Q_INVOKABLE QVariant nextDocument(const QString& document, bool isHtml, bool allowRemote,
                                      bool dark);

    /// The address the view loads `document` from, once, when the document is too large for
    /// a data: address (which the view makes of its HTML); else empty, and the view loads the
    /// HTML itself, a round trip sooner.
    Q_INVOKABLE QString serve(const QString& document);

    /// A map of allow (bool), open (bool) and, when a link warning matches, shownDomain and
    /// actualHost. `initialLoad` is true for the load of the document itself.
    Q_INVOKABLE QVariantMap decide(const QUrl& url, bool linkClick, bool initialLoad) const;

    /// Hands the address to the desktop's default browser (or mail program).
    Q_INVOKABLE void openOutside(const QUrl& url) const;

signals:
    void warningsChanged();

private:
    QQuickWebEngineProfile* profile_ = nullptr;
    QPointer<RemoteBlocker> blocker_;
    MailScheme* scheme_ = nullptr;
    QVariantList warningsForView_;
    std::vector<LinkWarning> warnings_;
    QString loadedKey_;
    bool loadedOnce_ = false;
};

} // namespace qs
