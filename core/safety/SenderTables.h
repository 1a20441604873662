#pragma once

#include <array>
#include <string_view>
#include <vector>

/// The fixed tables of the sender checks. Constant data, shared by every thread.
namespace qs::SenderTables {

/// A brand that phishing mail likes to claim, with its official registrable domains: the main
/// domain first, then the other domains it really sends mail from, its national sites and its
/// sister services.
struct Brand {
    /// Lower case, as it would appear in a display name.
    std::string_view word;
    /// Between one and eight; the first is the main domain.
    std::vector<std::string_view> domains;
};

/// The 38 brands, in a fixed order (the order in which the checks walk them).
const std::vector<Brand>& brands();

/// Brand words that are everyday words or too short for fuzzy matching: they are claimed only
/// by a name of the brand and generic words, and never by edit distance.
extern const std::array<std::string_view, 9> shortBrands;

/// Words that may stand beside a short brand's name without changing whom it names.
extern const std::array<std::string_view, 39> genericWords;

bool isShortBrand(std::string_view word);
bool isGenericWord(std::string_view word);

} // namespace qs::SenderTables
