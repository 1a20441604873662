#include "search/TokenTable.h"

#include <bit>
#include <functional>

namespace qs {

namespace {

// Slots stay at most half full, so a probe sequence stays short.
constexpr size_t maxLoadNumerator = 1;
constexpr size_t maxLoadDenominator = 2;
constexpr size_t minimumSlots = 64;

} // namespace

size_t TokenTable::hash(std::string_view token) {
    return std::hash<std::string_view>{}(token);
}

size_t TokenTable::slotOf(std::string_view token, size_t h) const {
    size_t mask = slots_.size() - 1;
    for (size_t i = h & mask;; i = (i + 1) & mask) {
        uint32_t entry = slots_[i];
        if (entry == 0 || this->token(entry - 1) == token) {
            return i;
        }
    }
}

uint32_t TokenTable::find(std::string_view token) const {
    if (slots_.empty()) {
        return npos;
    }
    uint32_t entry = slots_[slotOf(token, hash(token))];
    return entry == 0 ? npos : entry - 1;
}

uint32_t TokenTable::intern(std::string_view token, bool* isNew) {
    if ((size() + 1) * maxLoadDenominator > slots_.size() * maxLoadNumerator) {
        rehash(std::max(minimumSlots, slots_.size() * 2));
    }
    size_t slot = slotOf(token, hash(token));
    if (slots_[slot] != 0) {
        if (isNew) {
            *isNew = false;
        }
        return slots_[slot] - 1;
    }
    auto number = uint32_t(size());
    arena_.append(token);
    starts_.push_back(uint32_t(arena_.size()));
    slots_[slot] = number + 1;
    if (isNew) {
        *isNew = true;
    }
    return number;
}

void TokenTable::appendUnchecked(std::string_view token) {
    arena_.append(token);
    starts_.push_back(uint32_t(arena_.size()));
}

void TokenTable::rehash(size_t slotCount) {
    slots_.assign(std::bit_ceil(slotCount), 0);
    size_t mask = slots_.size() - 1;
    for (uint32_t n = 0; n < size(); ++n) {
        size_t i = hash(token(n)) & mask;
        while (slots_[i] != 0) {
            i = (i + 1) & mask;
        }
        slots_[i] = n + 1;
    }
}

void TokenTable::reserve(size_t tokens, size_t bytes) {
    arena_.reserve(bytes);
    starts_.reserve(tokens + 1);
    size_t wanted = tokens * maxLoadDenominator / maxLoadNumerator + 1;
    if (wanted > slots_.size()) {
        rehash(std::max(minimumSlots, wanted));
    }
}

void TokenTable::clear() {
    arena_.clear();
    starts_.assign(1, 0);
    slots_.clear();
}

size_t TokenTable::memoryUsage() const {
    return arena_.capacity() + starts_.capacity() * sizeof(uint32_t) +
           slots_.capacity() * sizeof(uint32_t);
}

} // namespace qs
