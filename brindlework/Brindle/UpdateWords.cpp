#include "Brindle/UpdateWords.h"

namespace brindle {

UpdateWords UpdateWords::describe(const UpdatePhase& phase, const std::string& appName,
                                  const std::string& currentVersion, bool canInstallInPlace) {
    using enum UpdatePhase::Kind;
    const std::string named = appName + " " + phase.feed.version;
    switch (phase.kind) {
    case checking:
        return {"Checking for updates…", {}, {}};
    case idle:
    case upToDate:
        return {
            "You’re up to date", appName + " " + currentVersion + " is the newest version.", {}};
    case available:
        if (canInstallInPlace && phase.feed.download)
            return {named + " is available",
                    "You have " + currentVersion + ".",
                    {Button::later, Button::downloadAndInstall}};
        return {named + " is available",
                "Download it from the website and move " + appName +
                    " to your Applications folder to get updates automatically.",
                {Button::later, Button::openDownloadPage}};
    case downloading:
        return {"Downloading " + named, {}, {}};
    case ready:
        return {named + " is ready",
                "It installs automatically the next time you quit " + appName + ".",
                {Button::later, Button::restartNow}};
    case failed:
        return {"Update problem", phase.message, {}};
    }
    return {};
}

} // namespace brindle
