#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

namespace qs::RankSets {

// Search answers as bitmaps over record ranks (bit r%64 of word r/64): a word's matches are
// set in one, the words are intersected, and the ranks come out ascending without a sort.

/// The ranks below `rankCount` that every word of `words` matches, where `mark(word, bits)`
/// sets in `bits` the ranks that one word matches. Empty (no words at all) when any word
/// matches nothing; `words` must not be empty.
template <typename Mark>
std::vector<uint64_t> matchingAll(const std::vector<std::string>& words, size_t rankCount,
                                  Mark&& mark) {
    size_t wordCount = (rankCount + 63) / 64;
    std::vector<uint64_t> candidates;
    std::vector<uint64_t> matches(wordCount);
    for (const auto& word : words) {
        std::fill(matches.begin(), matches.end(), 0);
        mark(word, matches);
        bool any = false;
        if (candidates.empty()) {
            candidates.swap(matches);
            matches.assign(wordCount, 0);
            for (uint64_t bits : candidates) {
                any = any || bits != 0;
            }
        } else {
            for (size_t i = 0; i < wordCount; ++i) {
                candidates[i] &= matches[i];
                any = any || candidates[i] != 0;
            }
        }
        if (!any) {
            return {};
        }
    }
    return candidates;
}

/// Sets the bit of `rank` in `bits`.
inline void mark(std::vector<uint64_t>& bits, uint32_t rank) {
    bits[rank >> 6] |= uint64_t(1) << (rank & 63);
}

/// Calls `visit(rank)` for every set bit, ascending.
template <typename Visit>
void forEach(const std::vector<uint64_t>& bits, Visit&& visit) {
    for (size_t i = 0; i < bits.size(); ++i) {
        for (uint64_t word = bits[i]; word != 0; word &= word - 1) {
            visit(uint32_t(i * 64 + size_t(std::countr_zero(word))));
        }
    }
}

} // namespace qs::RankSets
