#include "safety/SenderTrust.h"

#include "safety/ThreadMatcher.h"
#include "support/Regex.h"
#include "support/Unicode.h"

#include <unicode/locid.h>

namespace qs {

std::string_view toString(SenderTrust trust) {
    switch (trust) {
    case SenderTrust::verified:
        return "verified";
    case SenderTrust::failed:
        return "failed";
    case SenderTrust::partial:
        return "partial";
    case SenderTrust::unknown:
        return "unknown";
    }
    return "unknown";
}

std::optional<SenderTrust> senderTrustNamed(std::string_view name) {
    for (SenderTrust trust :
         {SenderTrust::verified, SenderTrust::failed, SenderTrust::partial, SenderTrust::unknown}) {
        if (toString(trust) == name) {
            return trust;
        }
    }
    return std::nullopt;
}

std::ostream& operator<<(std::ostream& out, SenderTrust trust) {
    return out << toString(trust);
}

void to_json(nlohmann::json& json, SenderTrust trust) {
    json = std::string(toString(trust));
}

void from_json(const nlohmann::json& json, SenderTrust& trust) {
    auto parsed = senderTrustNamed(json.get_ref<const std::string&>());
    if (!parsed) {
        throw nlohmann::json::other_error::create(501, "not a sender trust", &json);
    }
    trust = *parsed;
}

std::ostream& operator<<(std::ostream& out, const SenderTrustReading& reading) {
    out << reading.trust << " {";
    bool first = true;
    for (const auto& [mechanism, result] : reading.results) {
        out << (first ? "" : ", ") << mechanism << "=" << result;
        first = false;
    }
    return out << "}";
}

namespace {

bool isBad(const std::string* result) {
    return result && (*result == "fail" || *result == "softfail" || *result == "permerror");
}

bool is(const std::string* result, std::string_view value) {
    return result && *result == value;
}

const std::string* lookup(const std::map<std::string, std::string>& results,
                          const std::string& key) {
    auto it = results.find(key);
    return it == results.end() ? nullptr : &it->second;
}

} // namespace

SenderTrustReading senderTrustFrom(const MIMEHeaders& headers) {
    SenderTrustReading reading;
    // Only the topmost field counts: it is the one the receiving server wrote; lower ones may
    // come from anywhere, the sender included.
    const std::string* value = headers.first("Authentication-Results");
    if (!value) {
        value = headers.first("ARC-Authentication-Results");
    }
    if (!value) {
        return reading;
    }
    static const Regex mechanism(std::string_view(R"(\b(spf|dkim|dmarc)\s*=\s*([a-zA-Z]+))"),
                                 UREGEX_CASE_INSENSITIVE);
    icu::UnicodeString text = Unicode::fromUTF8(*value);
    icu::RegexMatcher& matcher = threadMatcher(mechanism, text);
    UErrorCode status = U_ZERO_ERROR;
    while (matcher.find(status) && U_SUCCESS(status)) {
        icu::UnicodeString name = matcher.group(1, status);
        icu::UnicodeString result = matcher.group(2, status);
        name.toLower(icu::Locale::getRoot());
        result.toLower(icu::Locale::getRoot());
        std::string key = Unicode::toUTF8(name);
        std::string outcome = Unicode::toUTF8(result);
        auto [it, inserted] = reading.results.try_emplace(key, outcome);
        // Several signatures of one mechanism: any that doesn't pass spoils a pass.
        if (!inserted && it->second == "pass" && outcome != "pass") {
            it->second = outcome;
        }
    }
    if (reading.results.empty()) {
        return reading;
    }
    const std::string* spf = lookup(reading.results, "spf");
    const std::string* dkim = lookup(reading.results, "dkim");
    const std::string* dmarc = lookup(reading.results, "dmarc");
    bool dmarcPass = is(dmarc, "pass");
    if (isBad(dmarc) || (isBad(dkim) && !dmarcPass) || (is(spf, "fail") && !dmarcPass)) {
        reading.trust = SenderTrust::failed;
    } else if (dmarcPass || (is(spf, "pass") && is(dkim, "pass"))) {
        reading.trust = SenderTrust::verified;
    } else {
        reading.trust = SenderTrust::partial;
    }
    return reading;
}

} // namespace qs
