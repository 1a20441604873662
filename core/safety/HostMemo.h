#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qs {

/// The domain facts of the hosts met during one inspection, each worked out once: a newsletter
/// sends hundreds of links and images to the same few hosts. Every answer is exactly what the
/// plain function gives for that string; the string itself is the key, with no folding of case
/// or IDNA form, so differently written hosts never share an entry. Holds at most
/// `kMaxEntries` hosts (it starts afresh when full), so hostile mail can't make it grow without
/// bound. One memo belongs to one inspection on one thread.
class HostMemo {
public:
    /// More distinct hosts than real mail holds; past this the memo is emptied and refilled.
    static constexpr size_t kMaxEntries = 1024;

    /// `Domains::registrable(name)`. The reference stays valid until the next call.
    const std::string& registrable(std::string_view name);

    /// Whether `Domains::registrable` gives the same for `a` and for `b`.
    bool sameRegistrable(std::string_view a, std::string_view b);

    /// Whether `host` (in lower case, as `Domains::host` gives it) belongs to a known tracking
    /// service of `TrackerTables::trackerDomains`: it is one of those domains, a subdomain of
    /// one, or has one as its registrable domain.
    bool isTrackerService(std::string_view host);

private:
    struct Facts {
        std::string registrable;
        /// -1 until asked, then 0 or 1.
        signed char trackerService = -1;
    };
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>()(text);
        }
    };

    /// Makes room for `count` new entries, so that entries looked up within one call survive it.
    void reserve(size_t count);
    Facts& facts(std::string_view name);

    std::unordered_map<std::string, Facts, Hash, std::equal_to<>> facts_;
    /// The entries asked for last: links and images to one host tend to come in runs (or a
    /// link's shown domain and its host in turns), and a comparison is cheaper than hashing.
    struct Recent {
        const std::string* name = nullptr;
        Facts* facts = nullptr;
    };
    std::array<Recent, 2> recent_{};
    size_t nextRecent_ = 0;
};

} // namespace qs
