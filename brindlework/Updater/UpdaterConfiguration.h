#pragma once

#include "Brindle/AppBundle.h"
#include "Brindle/UpdateLogic.h"

#include <QString>
#include <QUrl>

#include <filesystem>
#include <optional>
#include <string>

namespace brindle {

/// What the updater knows of the program it keeps current. The feed address and the public
/// key are settings of the build; without a feed address there is no updater activity at all.
struct UpdaterConfiguration {
    QUrl feedURL;
    /// Base64 of the raw Ed25519 public key the archives and seals are signed with.
    std::optional<std::string> publicKey;
    std::string currentVersion;
    std::string appName;
    /// The running program's bundle; none for a program the package manager installed.
    std::optional<AppBundle> bundle;
    /// The user's caches folder, where updates are staged.
    std::filesystem::path caches;
    SystemVersion system;

    /// The running program's: its version and name from the application object, its bundle
    /// from the folders around the executable, the kernel's version.
    static UpdaterConfiguration running(const QString& feedURL, const QString& publicKey);
};

} // namespace brindle
