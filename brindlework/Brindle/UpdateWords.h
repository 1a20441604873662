#pragma once

#include "Brindle/UpdatePhase.h"

#include <string>
#include <vector>

namespace brindle {

/// What the Software Update window says in each phase.
struct UpdateWords {
    enum class Button { later, downloadAndInstall, openDownloadPage, restartNow };

    std::string title;
    std::string detail;
    std::vector<Button> buttons;

    bool operator==(const UpdateWords&) const = default;

    /// The words for `phase` of the program `appName` at `currentVersion`;
    /// `canInstallInPlace` chooses between installing and the download page.
    static UpdateWords describe(const UpdatePhase& phase, const std::string& appName,
                                const std::string& currentVersion, bool canInstallInPlace);
};

} // namespace brindle
