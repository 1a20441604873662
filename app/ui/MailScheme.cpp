#include "MailScheme.h"

#include <QBuffer>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>

#include <utility>

namespace qs {

void MailScheme::registerScheme() {
    if (registered())
        return;
    // Not a secure scheme: a secure page would refuse plain-http pictures the user asked for.
    QWebEngineUrlScheme scheme(name);
    scheme.setSyntax(QWebEngineUrlScheme::Syntax::Path);
    QWebEngineUrlScheme::registerScheme(scheme);
}

bool MailScheme::registered() {
    return QWebEngineUrlScheme::schemeByName(name).name() == name;
}

QUrl MailScheme::serve(QByteArray html) {
    address_ = QUrl(QStringLiteral("%1:document/%2").arg(QLatin1String(name)).arg(++served_));
    document_ = std::move(html);
    return address_;
}

void MailScheme::requestStarted(QWebEngineUrlRequestJob* job) {
    // Only the view's own navigation, never a request of a page's content.
    if (address_.isEmpty() || job->requestUrl() != address_ || !job->initiator().isEmpty()) {
        job->fail(QWebEngineUrlRequestJob::UrlNotFound);
        return;
    }
    address_.clear();
    auto* body = new QBuffer(job);
    body->setData(std::exchange(document_, {}));
    job->reply("text/html", body);
}

} // namespace qs
