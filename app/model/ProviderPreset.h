#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// A mail provider the add-account flow knows by name: where its IMAP server is and how its
/// users make an app password. "custom" stands for every other server.
struct ProviderPreset {
    std::string id;
    std::string name;
    std::string symbol;
    /// Empty for "custom": the user names the server.
    std::string host;
    uint16_t port = 993;
    /// How to make the password, one line per step.
    std::vector<std::string> steps;
    /// The provider's page for app passwords or security; none for "custom".
    std::optional<std::string> helpURL;
    std::optional<std::string> note;
    /// What the provider's card says it needs.
    std::string needs;

    friend bool operator==(const ProviderPreset&, const ProviderPreset&) = default;

    /// Every preset in the order the cards show, "custom" last.
    static const std::vector<ProviderPreset>& all();
    /// The preset with this id, or "custom" for any other.
    static const ProviderPreset& named(std::string_view id);
    /// The password as the provider expects it: Google shows app passwords in groups of four
    /// letters, so for "gmail" every blank is taken out; others keep theirs.
    std::string passwordForUse(std::string_view typed) const;
};

} // namespace qs
