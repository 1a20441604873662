#include "support/Regex.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace qs {

namespace {

std::unique_ptr<icu::RegexPattern> compile(const icu::UnicodeString& source, uint32_t flags) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    std::unique_ptr<icu::RegexPattern> pattern(
        icu::RegexPattern::compile(source, flags, where, status));
    if (U_FAILURE(status) || !pattern) {
        std::string text;
        source.toUTF8String(text);
        std::fprintf(stderr, "bad regular expression at offset %d: %s\n", where.offset,
                     text.c_str());
        std::abort();
    }
    return pattern;
}

} // namespace

Regex::Regex(std::u16string_view pattern, uint32_t flags)
    : pattern_(compile(icu::UnicodeString(pattern.data(), int32_t(pattern.size())), flags)) {}

Regex::Regex(std::string_view utf8Pattern, uint32_t flags)
    : pattern_(compile(icu::UnicodeString::fromUTF8(
                           icu::StringPiece(utf8Pattern.data(), int32_t(utf8Pattern.size()))),
                       flags)) {}

std::unique_ptr<icu::RegexMatcher> Regex::matcher(const icu::UnicodeString& text) const {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> m(pattern_->matcher(text, status));
    if (U_FAILURE(status) || !m) {
        std::abort();
    }
    return m;
}

bool Regex::contains(const icu::UnicodeString& text) const {
    UErrorCode status = U_ZERO_ERROR;
    auto m = matcher(text);
    return m->find(0, status) && U_SUCCESS(status);
}

bool Regex::matchesWhole(const icu::UnicodeString& text) const {
    UErrorCode status = U_ZERO_ERROR;
    auto m = matcher(text);
    return m->matches(status) && U_SUCCESS(status);
}

icu::UnicodeString Regex::replaceAll(const icu::UnicodeString& text,
                                     const icu::UnicodeString& replacement) const {
    UErrorCode status = U_ZERO_ERROR;
    auto m = matcher(text);
    icu::UnicodeString out = m->replaceAll(replacement, status);
    return U_SUCCESS(status) ? out : text;
}

} // namespace qs
