#include "safety/HTMLReport.h"

namespace qs {

std::ostream& operator<<(std::ostream& out, const LinkWarning& warning) {
    return out << "LinkWarning{shown \"" << warning.shownText << "\" names " << warning.shownDomain
               << ", goes to " << warning.actualHost << " (" << warning.href << ")}";
}

std::ostream& operator<<(std::ostream& out, const HTMLReport& report) {
    out << "HTMLReport{remote " << report.remoteImageCount << ", trackers " << report.trackerCount
        << " [";
    for (size_t i = 0; i < report.trackerHosts.size(); ++i) {
        out << (i ? ", " : "") << report.trackerHosts[i];
    }
    out << "], warnings [";
    for (size_t i = 0; i < report.linkWarnings.size(); ++i) {
        out << (i ? ", " : "") << report.linkWarnings[i];
    }
    return out << "]}";
}

} // namespace qs
