#include "RemoteBlocker.h"

namespace qs {

bool RemoteBlocker::blocks(const QUrl& url, QWebEngineUrlRequestInfo::ResourceType type,
                           Rules rules) {
    const QString scheme = url.scheme().toLower();
    if (scheme == QLatin1String("ws") || scheme == QLatin1String("wss"))
        return true;
    if (scheme != QLatin1String("http") && scheme != QLatin1String("https"))
        return false;
    // Only a plain image request is let through, and only once the user asked; a favicon,
    // a prefetch or a ping is an image to the network but not to the reader.
    return rules == Rules::blockRemote || type != QWebEngineUrlRequestInfo::ResourceTypeImage;
}

void RemoteBlocker::interceptRequest(QWebEngineUrlRequestInfo& info) {
    if (blocks(info.requestUrl(), info.resourceType(), rules_))
        info.block(true);
}

} // namespace qs
