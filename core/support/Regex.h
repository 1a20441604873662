#pragma once

#include <memory>
#include <string_view>
#include <unicode/regex.h>
#include <unicode/unistr.h>

namespace qs {

/// An ICU regular expression compiled once and shared read-only between threads. Keep instances
/// in function-local statics, so each is compiled on first use. A pattern that fails to
/// compile is a programming error and stops the program.
class Regex {
public:
    explicit Regex(std::u16string_view pattern, uint32_t flags = 0);
    explicit Regex(std::string_view utf8Pattern, uint32_t flags = 0);

    /// A fresh matcher over `text` (which must outlive it); matchers are not shared.
    std::unique_ptr<icu::RegexMatcher> matcher(const icu::UnicodeString& text) const;

    /// True when the pattern is found anywhere in `text`.
    bool contains(const icu::UnicodeString& text) const;

    /// True when the pattern matches the whole of `text`.
    bool matchesWhole(const icu::UnicodeString& text) const;

    /// Every match replaced by `replacement` ($1 style group references allowed).
    icu::UnicodeString replaceAll(const icu::UnicodeString& text,
                                  const icu::UnicodeString& replacement) const;

    const icu::RegexPattern& pattern() const { return *pattern_; }

private:
    std::unique_ptr<icu::RegexPattern> pattern_;
};

} // namespace qs
