#pragma once

#include "mime/MIMEHeaders.h"

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace qs {

/// What the receiving server recorded about SPF, DKIM and DMARC for a message. Stored as its
/// name ("verified", "failed", "partial", "unknown").
enum class SenderTrust { verified, failed, partial, unknown };

std::string_view toString(SenderTrust trust);

/// The trust of that name; nothing for any other text.
std::optional<SenderTrust> senderTrustNamed(std::string_view name);

std::ostream& operator<<(std::ostream& out, SenderTrust trust);

/// Encoded as its name; decoding any other value throws nlohmann::json::exception.
void to_json(nlohmann::json& json, SenderTrust trust);
void from_json(const nlohmann::json& json, SenderTrust& trust);

/// The verdict of a message's authentication results, with the result of each mechanism.
struct SenderTrustReading {
    SenderTrust trust = SenderTrust::unknown;
    /// "spf", "dkim", "dmarc" to their results, all lower case; only those that were reported.
    std::map<std::string, std::string> results;

    bool operator==(const SenderTrustReading&) const = default;
};

std::ostream& operator<<(std::ostream& out, const SenderTrustReading& reading);

/// Reads the topmost Authentication-Results field (the one the user's own server added), or,
/// without one, the first ARC-Authentication-Results. Of several results of one mechanism a
/// pass is replaced by a later non-pass, never the other way round. A DMARC failure, or a DKIM
/// failure or a hard SPF failure without a DMARC pass, is `failed`; a DMARC pass, or SPF and
/// DKIM both passing, is `verified`; any other reading `partial`; no field or no result
/// `unknown`. Pure; never fails.
SenderTrustReading senderTrustFrom(const MIMEHeaders& headers);

} // namespace qs
