#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace brindle {

/// Puts a downloaded archive on disk and proves what it holds. File work only: run it off
/// the main thread. Every failure throws UpdateError in the user's words.
namespace UpdateStaging {

/// "{caches}/{identifier, or app.brindle}/BrindleUpdate": where updates are staged.
std::filesystem::path baseDirectory(const std::filesystem::path& caches,
                                    const std::string& identifier);

/// Discards anything staged earlier under `base`, unpacks `zip` into "{base}/{version}" and
/// returns the program folder inside: the first entry, by name, that holds a bundle manifest.
std::filesystem::path stage(std::string_view zip, const std::string& version,
                            const std::filesystem::path& base);

/// Proves the staged program: the same identifier as the running one, the version the feed
/// announced, and a seal signed by `publicKey` that matches every file.
void validate(const std::filesystem::path& staged, const std::string& expectedVersion,
              const std::string& identifier, const std::optional<std::string>& publicKey);

} // namespace UpdateStaging

} // namespace brindle
