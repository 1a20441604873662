#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qs {

/// A 128-bit identifier, written in the canonical upper-case form
/// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
class UUID {
public:
    /// The nil UUID; use `random()` for a new identity.
    UUID() = default;

    /// A new random (version 4) UUID.
    static UUID random();

    /// Accepts the canonical form in either case; nothing for anything else.
    static std::optional<UUID> parse(std::string_view text);

    /// Canonical upper-case form.
    std::string string() const;

    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    friend bool operator==(const UUID&, const UUID&) = default;
    friend auto operator<=>(const UUID&, const UUID&) = default;

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace qs

template <>
struct std::hash<qs::UUID> {
    size_t operator()(const qs::UUID& id) const noexcept {
        size_t h = 1469598103934665603ull;
        for (auto b : id.bytes()) {
            h = (h ^ b) * 1099511628211ull;
        }
        return h;
    }
};
