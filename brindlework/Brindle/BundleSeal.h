#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace brindle {

/// What proves a bundle whole: a list of every file in it with its size and SHA-256, and an
/// Ed25519 signature of that list made with the update key. A bundle passes only when the
/// signature holds and the files on disk are exactly the listed ones, byte for byte.
namespace BundleSeal {

inline constexpr const char* listName = "brindle-seal.json";
inline constexpr const char* signatureName = "brindle-seal.sig";

struct Entry {
    /// Relative to the bundle, with "/" separators.
    std::string path;
    uint64_t size = 0;
    /// Lower-case hex. A symbolic link is listed with the digest of its target's text.
    std::string sha256;
    bool operator==(const Entry&) const = default;
};

/// Every file of the bundle but the seal's own two, sorted by path.
std::vector<Entry> survey(const std::filesystem::path& bundle);
/// The list's text for `entries`.
std::string listText(const std::vector<Entry>& entries);
/// Whether the bundle's seal is signed by `publicKey` (base64) and matches its files.
bool check(const std::filesystem::path& bundle, std::string_view publicKey);

} // namespace BundleSeal

} // namespace brindle
