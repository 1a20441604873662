#include "safety/ThreadMatcher.h"

#include <memory>
#include <utility>
#include <vector>

namespace qs {

icu::RegexMatcher& threadMatcher(const Regex& regex, const icu::UnicodeString& text) {
    // A handful of fixed patterns: a short list searched by address is all it takes.
    thread_local std::vector<std::pair<const Regex*, std::unique_ptr<icu::RegexMatcher>>> cache;
    for (auto& [pattern, matcher] : cache) {
        if (pattern == &regex) {
            matcher->reset(text);
            return *matcher;
        }
    }
    cache.emplace_back(&regex, regex.matcher(text));
    return *cache.back().second;
}

} // namespace qs
