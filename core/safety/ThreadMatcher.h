#pragma once

#include "support/Regex.h"

namespace qs {

/// A matcher of `regex` for the calling thread, reset to `text` (which must outlive its use).
/// ICU matchers are costly to make, each allocating its own backtracking stack, and can't be
/// shared between threads, so every thread keeps one per pattern and reuses it. The matcher
/// stays valid until the next call for the same pattern on the same thread; don't nest two
/// uses of one pattern.
icu::RegexMatcher& threadMatcher(const Regex& regex, const icu::UnicodeString& text);

} // namespace qs
