#pragma once

#include <QWebEngineUrlRequestInfo>
#include <QWebEngineUrlRequestInterceptor>

namespace qs {

/// The gate every request of a message view passes. By default nothing remote loads: every
/// http(s) and ws(s) request is refused. After the user asks for a message's pictures, only
/// images may come from the web; documents, style sheets, scripts, fonts, media, frames,
/// pings, prefetches and sockets stay refused. Tracking pixels never reach this gate: they are
/// cut out of the document before it is shown.
class RemoteBlocker : public QWebEngineUrlRequestInterceptor {
public:
    enum class Rules { blockRemote, imagesOnly };

    explicit RemoteBlocker(QObject* parent = nullptr) : QWebEngineUrlRequestInterceptor(parent) {}

    /// Whether `rules` refuse a request for `url` of this type.
    static bool blocks(const QUrl& url, QWebEngineUrlRequestInfo::ResourceType type, Rules rules);

    Rules rules() const { return rules_; }
    void setRules(Rules rules) { rules_ = rules; }

    void interceptRequest(QWebEngineUrlRequestInfo& info) override;

private:
    // Read and written on the main thread only: the engine calls profile interceptors there.
    Rules rules_ = Rules::blockRemote;
};

} // namespace qs
