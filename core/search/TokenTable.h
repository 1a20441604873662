#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// The distinct tokens of an index, each interned once and named by a dense number (its token
/// number). Tokens live in one byte arena with an offset table, and lookup is an open-addressing
/// hash over token numbers: at millions of tokens this costs a few bytes per token where a node
/// map of strings would cost about a hundred.
class TokenTable {
public:
    static constexpr uint32_t npos = UINT32_MAX;

    /// The number of `token`, or npos when it isn't in the table.
    uint32_t find(std::string_view token) const;

    /// The number of `token`, entering it when new (numbers are given out 0, 1, 2, ...).
    /// `isNew` (optional) tells which happened.
    uint32_t intern(std::string_view token, bool* isNew = nullptr);

    /// Appends a token known to be new without looking it up; lookups are unavailable until
    /// `finishAppending`. For loading a file whose tokens arrive sorted, hence distinct: one
    /// hash pass at the end costs less than growing the table token by token.
    void appendUnchecked(std::string_view token);

    /// Builds the lookup table after `appendUnchecked`.
    void finishAppending() { rehash(std::max<size_t>(64, size() * 2 + 1)); }

    /// The token of a number below `size()`.
    std::string_view token(uint32_t number) const {
        return {arena_.data() + starts_[number], size_t(starts_[number + 1] - starts_[number])};
    }

    size_t size() const { return starts_.size() - 1; }

    /// Makes room for `tokens` tokens of about `bytes` bytes in all, so a load doesn't rehash.
    void reserve(size_t tokens, size_t bytes);

    /// Drops every token.
    void clear();

    /// Bytes held (arena, offsets and hash slots), for benchmarks.
    size_t memoryUsage() const;

private:
    static size_t hash(std::string_view token);
    void rehash(size_t slotCount);
    size_t slotOf(std::string_view token, size_t hash) const;

    std::string arena_;
    std::vector<uint32_t> starts_{0};
    // Token number + 1 per slot, 0 for an empty slot; the count is a power of two.
    std::vector<uint32_t> slots_;
};

} // namespace qs
