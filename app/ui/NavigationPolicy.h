#pragma once

#include "safety/HTMLReport.h"

#include <QUrl>

#include <optional>
#include <vector>

namespace qs {

/// What a message view does with one navigation: links never open inside it.
struct NavigationPolicy {
    struct Decision {
        /// The view may go there itself.
        bool allow = false;
        /// Hand the address to the desktop's browser (after the warning, if there is one).
        bool openOutside = false;
        /// The link's text names another site than the one it opens.
        std::optional<LinkWarning> warning;
    };

    /// A link click is always cancelled in the view; a web or mail address then opens outside,
    /// behind a warning when one of `warnings` matches it (same href, or same host). Anything
    /// else the view may follow only when it is the document's own load or an "about" or
    /// "data" address; "file" and web addresses never load in the view.
    static Decision decide(const QUrl& url, bool linkClick, bool initialLoad,
                           const std::vector<LinkWarning>& warnings);
};

} // namespace qs
