#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brindle {

/// The update feed: one JSON object telling the newest version and, when the program can
/// replace itself, where its signed archive lies. Unknown keys are ignored.
struct UpdateFeed {
    /// The package for in-place installation.
    struct Download {
        std::string url;
        /// The archive's exact size in bytes.
        int64_t length = 0;
        /// Base64 of an Ed25519 signature over the archive's bytes.
        std::string edSignature;
        bool operator==(const Download&) const = default;
    };

    std::string version;
    /// A web page for a manual download.
    std::string url;
    std::optional<std::string> notes;
    std::optional<std::string> minimumSystemVersion;
    std::optional<Download> download;

    bool operator==(const UpdateFeed&) const = default;

    /// The feed in `json`; nothing when it isn't a JSON object, lacks `version` or `url`, or
    /// a key holds the wrong type. An explicit null counts as an absent optional key.
    static std::optional<UpdateFeed> decode(std::string_view json);
};

} // namespace brindle
