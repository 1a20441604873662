#include "NavigationPolicy.h"

#include "safety/Domains.h"

namespace qs {

NavigationPolicy::Decision NavigationPolicy::decide(const QUrl& url, bool linkClick,
                                                    bool initialLoad,
                                                    const std::vector<LinkWarning>& warnings) {
    Decision decision;
    const QString scheme = url.scheme().toLower();
    if (!linkClick) {
        decision.allow =
            initialLoad || scheme == QLatin1String("about") || scheme == QLatin1String("data");
        return decision;
    }
    if (url.isEmpty())
        return decision;
    // Only addresses a browser or mail program is for leave the view: a file or custom-scheme
    // link would hand a local program whatever the sender chose.
    decision.openOutside = scheme == QLatin1String("http") || scheme == QLatin1String("https") ||
                           scheme == QLatin1String("mailto");
    if (!decision.openOutside)
        return decision;
    const std::string absolute = url.toString(QUrl::FullyEncoded).toStdString();
    const std::string host = url.host().toLower().toStdString();
    for (const auto& warning : warnings) {
        auto warned = Domains::host(warning.href);
        if (warning.href == absolute || warning.href == url.toString().toStdString() ||
            (warned && !host.empty() && *warned == host)) {
            decision.warning = warning;
            break;
        }
    }
    return decision;
}

} // namespace qs
