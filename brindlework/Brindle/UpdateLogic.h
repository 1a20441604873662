#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brindle {

/// The running system's version, field by field.
struct SystemVersion {
    int major = 0;
    int minor = 0;
    int patch = 0;
    bool operator==(const SystemVersion&) const = default;
};

/// The three decisions taken on a feed. Pure: no error is reported, false is the only failure.
namespace UpdateLogic {

/// True only when `candidate` orders strictly after `current`, runs of digits comparing as
/// numbers: "1.10" is newer than "1.9", and "1.2" isn't newer than "1.2.0".
bool isNewer(std::string_view candidate, std::string_view current);

/// Whether a system at `system` meets `minimum` ("14.2"); pieces of `minimum` that aren't
/// decimal integers are skipped, missing fields count as 0, and no minimum is always met.
bool systemSupports(const std::optional<std::string>& minimum, SystemVersion system);

/// Whether `signature` (base64) is a valid Ed25519 signature of `data` under `publicKey`
/// (base64 of the raw 32 bytes).
bool verify(std::string_view data, std::string_view signature, std::string_view publicKey);

/// The kernel release of this machine ("6.1.0-18-amd64" gives 6.1.0): what a feed's
/// `minimumSystemVersion` is compared against on Linux.
SystemVersion runningSystem();

/// The version at the start of `release`: up to three dot-separated decimal fields, stopping
/// at the first character that belongs to none.
SystemVersion parseSystemVersion(std::string_view release);

/// Strict base64 (padding required, no white space); nothing on any fault.
std::optional<std::string> decodeBase64(std::string_view text);

} // namespace UpdateLogic

} // namespace brindle
