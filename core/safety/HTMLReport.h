#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace qs {

/// A link whose visible text names a different site from the one it goes to.
struct LinkWarning {
    /// The link's visible text, as plain text, trimmed.
    std::string shownText;
    /// The domain that the visible text names, lower case.
    std::string shownDomain;
    /// The host the link really goes to, lower case.
    std::string actualHost;
    /// The link's target as written (entities decoded).
    std::string href;

    bool operator==(const LinkWarning&) const = default;
};

/// What `HTMLInspector::inspect` found in one HTML body.
struct HTMLReport {
    /// Images fetched from a remote server that are not trackers.
    int64_t remoteImageCount = 0;
    /// Images judged to be trackers; an image counts in one of the two numbers, never both.
    int64_t trackerCount = 0;
    /// Registrable domains of the trackers, without duplicates, in order of first appearance.
    std::vector<std::string> trackerHosts;
    std::vector<LinkWarning> linkWarnings;

    bool operator==(const HTMLReport&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LinkWarning& warning);
std::ostream& operator<<(std::ostream& out, const HTMLReport& report);

} // namespace qs

template <>
struct std::hash<qs::LinkWarning> {
    size_t operator()(const qs::LinkWarning& warning) const noexcept {
        size_t h = 0;
        for (const std::string* part :
             {&warning.shownText, &warning.shownDomain, &warning.actualHost, &warning.href}) {
            h ^= std::hash<std::string>()(*part) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
        }
        return h;
    }
};
