#pragma once

#include <QByteArray>
#include <QUrl>
#include <QWebEngineUrlSchemeHandler>

namespace qs {

/// Serves a message view its document from memory under an address of the program's own
/// scheme. Unlike a page loaded from its HTML (a data: address), a document here has no size
/// limit, so a mail with large inline pictures still shows. Each document is handed out once,
/// to the view's own load; a page's content asking for one gets nothing.
class MailScheme : public QWebEngineUrlSchemeHandler {
public:
    static constexpr char name[] = "quernstead-mail";

    /// Makes the scheme known to the web engine; must run before the engine starts.
    static void registerScheme();
    /// Whether the scheme was registered in time to be served.
    static bool registered();

    explicit MailScheme(QObject* parent = nullptr) : QWebEngineUrlSchemeHandler(parent) {}

    /// The address under which `html` (UTF-8) is served next; it replaces any document not yet
    /// fetched.
    QUrl serve(QByteArray html);

    void requestStarted(QWebEngineUrlRequestJob* job) override;

private:
    QUrl address_;
    QByteArray document_;
    quint64 served_ = 0;
};

} // namespace qs
