#include "MailWebGuard.h"

#include "MailScheme.h"
#include "NavigationPolicy.h"
#include "RemoteBlocker.h"
#include "mime/HTMLText.h"
#include "safety/HTMLInspector.h"

#include <QCryptographicHash>
#include <QDesktopServices>
#include <QQuickWebEngineProfile>
#include <utility>

namespace qs {

MailWebGuard::MailWebGuard(QObject* parent) : QObject(parent) {
    // A profile made without a storage name is off the record: nothing reaches the disk.
    profile_ = new QQuickWebEngineProfile(this);
    profile_->setHttpCacheType(QQuickWebEngineProfile::NoCache);
    profile_->setPersistentCookiesPolicy(QQuickWebEngineProfile::NoPersistentCookies);
    profile_->setSpellCheckEnabled(false);
    if (profile_->isOffTheRecord()) {
        blocker_ = new RemoteBlocker(this);
        profile_->setUrlRequestInterceptor(blocker_);
    }
    if (MailScheme::registered()) {
        scheme_ = new MailScheme(this);
        profile_->installUrlSchemeHandler(MailScheme::name, scheme_);
    }
}

QString MailWebGuard::serve(const QString& document) {
    // The engine refuses a data: address over 2 MB; percent-encoding at most triples a byte.
    constexpr qsizetype limit = 2 * 1024 * 1024 - 64;
    QByteArray bytes = document.toUtf8();
    if (!scheme_ || bytes.size() * 3 < limit || bytes.toPercentEncoding().size() < limit)
        return {};
    return scheme_->serve(std::move(bytes)).toString();
}

void MailWebGuard::setWarnings(const QVariantList& warnings) {
    warningsForView_ = warnings;
    warnings_.clear();
    for (const QVariant& item : warnings) {
        const QVariantMap map = item.toMap();
        warnings_.push_back(LinkWarning{map.value("shownText").toString().toStdString(),
                                        map.value("shownDomain").toString().toStdString(),
                                        map.value("actualHost").toString().toStdString(),
                                        map.value("href").toString().toStdString()});
    }
    emit warningsChanged();
}

QVariant MailWebGuard::nextDocument(const QString& document, bool isHtml, bool allowRemote,
                                    bool dark) {
    // A hash keeps the key small for a large newsletter.
    const QString key =
        QString::fromLatin1(
            QCryptographicHash::hash(document.toUtf8(), QCryptographicHash::Sha256).toHex()) +
        (isHtml ? QLatin1Char('h') : QLatin1Char('t')) +
        (allowRemote ? QLatin1Char('1') : QLatin1Char('0')) +
        (dark ? QLatin1Char('d') : QLatin1Char('l'));
    if (loadedOnce_ && key == loadedKey_)
        return {};
    loadedKey_ = key;
    loadedOnce_ = true;
    if (isHtml && blocker_) {
        blocker_->setRules(allowRemote ? RemoteBlocker::Rules::imagesOnly
                                       : RemoteBlocker::Rules::blockRemote);
        return document;
    }
    // Without the blocker an HTML body is shown as its text: blocking never fails open.
    QString text = isHtml ? QString::fromStdString(HTMLInspector::plainTextDocument(
                                HTMLText::toPlain(document.toStdString())))
                          : document;
    // The text document's dark colours wait on a media query the engine answers from its own
    // idea of the desktop; the window's choice is the one to follow.
    if (dark)
        text.replace(QStringLiteral("@media (prefers-color-scheme: dark)"),
                     QStringLiteral("@media all"));
    return text;
}

QVariantMap MailWebGuard::decide(const QUrl& url, bool linkClick, bool initialLoad) const {
    const auto decision = NavigationPolicy::decide(url, linkClick, initialLoad, warnings_);
    QVariantMap map{{"allow", decision.allow}, {"open", decision.openOutside}};
    if (decision.warning) {
        map.insert("shownDomain", QString::fromStdString(decision.warning->shownDomain));
        map.insert("actualHost", QString::fromStdString(decision.warning->actualHost));
    }
    return map;
}

void MailWebGuard::openOutside(const QUrl& url) const {
    QDesktopServices::openUrl(url);
}

} // namespace qs
