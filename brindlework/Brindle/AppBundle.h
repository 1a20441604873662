#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace brindle {

/// A program that can replace itself: a self-contained directory (for example
/// ~/.local/opt/quernstead) holding a manifest that names the program, its version and the
/// executable to start. A program without one (installed by the package manager, run from a
/// build tree) is not a bundle and is never replaced.
struct AppBundle {
    static constexpr const char* manifestName = "brindle-manifest.json";

    std::filesystem::path path;
    /// Reverse-domain identifier; an update must carry the same one.
    std::string identifier;
    std::string version;
    std::string name;
    /// The program to start, relative to `path` ("bin/quernstead").
    std::string executable;

    bool operator==(const AppBundle&) const = default;

    /// The bundle at `directory`; nothing when its manifest is missing, unreadable or lacks a
    /// field.
    static std::optional<AppBundle> open(const std::filesystem::path& directory);
    /// The bundle holding `program`: its folder, or the folder above, when that has a manifest.
    static std::optional<AppBundle> containing(const std::filesystem::path& program);
    /// The manifest's text for these fields (the release tool writes it).
    std::string manifest() const;
};

} // namespace brindle
