#pragma once

#include "Brindle/AppBundle.h"
#include "SigningKey.h"

#include <filesystem>
#include <string>
#include <vector>

namespace brindle {

/// Making a release: a program folder becomes a bundle (manifest and signed seal), the bundle
/// a zip archive, and the archive a signed feed entry.
namespace ReleaseMaker {

/// One entry of an archive as written, name and all: the release tool's archives come from
/// folders, but an archive can hold any names.
struct ZipEntry {
    std::string name;
    std::string content;
    bool directory = false;
    int mode = 0644;
    /// Set: the entry is a symbolic link to this target.
    std::string linkTarget = {};
};

/// Writes the manifest of `bundle` into its folder, then the seal of every file, signed.
void seal(const AppBundle& bundle, const SigningKey& key);
/// A zip archive of `entries`, in order. Throws std::runtime_error when libarchive refuses.
std::string zip(const std::vector<ZipEntry>& entries);
/// A zip archive holding `folder` under its own name, with every file's permissions.
std::string zipFolder(const std::filesystem::path& folder);
/// The feed's JSON for a release of `version` whose archive is `archive`.
std::string feedEntry(const std::string& version, const std::string& pageURL,
                      const std::string& archiveURL, const std::string& archive,
                      const SigningKey& key, const std::string& notes,
                      const std::string& minimumSystemVersion);

} // namespace ReleaseMaker

} // namespace brindle
