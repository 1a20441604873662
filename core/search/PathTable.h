#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace qs {

/// Record ids by path, for an index that keeps the paths itself: open addressing (linear
/// probing) over ids, each beside its path's 32-bit hash, so that a probe rarely reads a
/// record other than the one sought. At a million records this is 16 MB and no allocation per
/// record, where a node map costs about sixty bytes a record and a cache miss per insertion.
/// Every call that compares paths takes `pathOf(id)`, the path of a record in the table.
class PathTable {
public:
    static constexpr uint32_t npos = UINT32_MAX;

    size_t size() const { return size_; }

    void clear() {
        slots_.clear();
        size_ = 0;
    }

    /// Makes room for `count` entries without growing on the way.
    void reserve(size_t count) {
        if (count * 2 > slots_.size()) {
            rehash(count * 2);
        }
    }

    template <typename PathOf>
    uint32_t find(std::string_view path, const PathOf& pathOf) const {
        if (slots_.empty()) {
            return npos;
        }
        size_t at = locate(path, hashOf(path), pathOf);
        return slots_[at].id == npos ? npos : slots_[at].id;
    }

    /// Enters `path` for `id`, or moves it to `id` when present; returns the id it had
    /// (npos when new).
    template <typename PathOf>
    uint32_t assign(std::string_view path, uint32_t id, const PathOf& pathOf) {
        if ((size_ + 1) * 2 > slots_.size()) {
            rehash(std::max<size_t>(64, slots_.size() * 2));
        }
        uint32_t hash = hashOf(path);
        size_t at = locate(path, hash, pathOf);
        uint32_t previous = slots_[at].id;
        size_ += previous == npos ? 1 : 0;
        slots_[at] = {id, hash};
        return previous;
    }

    /// Enters `id`, whose path has the hash `hash` (`hashOf`), without reading its path unless
    /// an entry has the same hash; returns the id already holding that path (npos when new),
    /// which then stays. For filling a table from hashes found elsewhere, on other threads.
    template <typename PathOf>
    uint32_t insert(uint32_t id, uint32_t hash, const PathOf& pathOf) {
        if ((size_ + 1) * 2 > slots_.size()) {
            rehash(std::max<size_t>(64, slots_.size() * 2));
        }
        size_t mask = slots_.size() - 1;
        size_t at = hash & mask;
        for (; slots_[at].id != npos; at = (at + 1) & mask) {
            if (slots_[at].hash == hash && pathOf(slots_[at].id) == pathOf(id)) {
                return slots_[at].id;
            }
        }
        slots_[at] = {id, hash};
        ++size_;
        return npos;
    }

    static uint32_t hashOf(std::string_view path) {
        auto h = uint64_t(std::hash<std::string_view>{}(path));
        return uint32_t(h ^ (h >> 32));
    }

    /// Removes `path`; returns its id, or npos when absent.
    template <typename PathOf>
    uint32_t erase(std::string_view path, const PathOf& pathOf) {
        if (slots_.empty()) {
            return npos;
        }
        size_t at = locate(path, hashOf(path), pathOf);
        uint32_t id = slots_[at].id;
        if (id == npos) {
            return npos;
        }
        // Backward shift: later entries of the run move up, so no tombstone is needed.
        size_t mask = slots_.size() - 1;
        for (size_t next = (at + 1) & mask; slots_[next].id != npos; next = (next + 1) & mask) {
            size_t home = slots_[next].hash & mask;
            // The entry may move into the hole only when its home isn't between the hole
            // (exclusive) and its own place, cyclically.
            if (((next - home) & mask) >= ((next - at) & mask)) {
                slots_[at] = slots_[next];
                at = next;
            }
        }
        slots_[at] = {npos, 0};
        --size_;
        return id;
    }

    /// Replaces every id with `newId(id)`, which must give each its own value: paths keep
    /// their places, as the hashes don't change.
    template <typename NewId>
    void renumber(const NewId& newId) {
        for (Slot& slot : slots_) {
            if (slot.id != npos) {
                slot.id = newId(slot.id);
            }
        }
    }

    size_t memoryUsage() const { return slots_.capacity() * sizeof(Slot); }

private:
    struct Slot {
        uint32_t id = npos;
        uint32_t hash = 0;
    };

    template <typename PathOf>
    size_t locate(std::string_view path, uint32_t hash, const PathOf& pathOf) const {
        size_t mask = slots_.size() - 1;
        for (size_t at = hash & mask;; at = (at + 1) & mask) {
            const Slot& slot = slots_[at];
            if (slot.id == npos || (slot.hash == hash && pathOf(slot.id) == path)) {
                return at;
            }
        }
    }

    void rehash(size_t wanted) {
        std::vector<Slot> old(std::bit_ceil(std::max<size_t>(64, wanted)));
        old.swap(slots_);
        size_t mask = slots_.size() - 1;
        for (const Slot& slot : old) {
            if (slot.id != npos) {
                size_t at = slot.hash & mask;
                while (slots_[at].id != npos) {
                    at = (at + 1) & mask;
                }
                slots_[at] = slot;
            }
        }
    }

    std::vector<Slot> slots_;
    size_t size_ = 0;
};

} // namespace qs
