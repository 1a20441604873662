#include "safety/HTMLScanner.h"

#include <algorithm>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace qs::HTMLScanner {

namespace {

char lowerASCII(char c) {
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

// The code point at `at`, or -1 for an ill-formed sequence (which the regex sees as U+FFFD).
UChar32 codePointAt(std::string_view text, size_t at, size_t* length = nullptr) {
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    auto i = int32_t(at);
    auto end = int32_t(text.size());
    UChar32 c;
    U8_NEXT(s, i, end, c);
    if (length) {
        *length = size_t(i) - at;
    }
    return c;
}

// ICU's \w: alphabetic, marks, decimal digits, connector punctuation, ZWNJ and ZWJ.
bool isWordCharacter(UChar32 c) {
    if (c < 0) {
        return false;
    }
    if (c < 0x80) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    }
    if (c == 0x200C || c == 0x200D || u_hasBinaryProperty(c, UCHAR_ALPHABETIC)) {
        return true;
    }
    return (U_GET_GC_MASK(c) & (U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK)) != 0;
}

// ICU's \s: the White_Space property (vertical tab and U+0085 included).
bool isRegexSpace(UChar32 c) {
    if (c < 0) {
        return false;
    }
    if (c < 0x80) {
        return c == ' ' || (c >= '\t' && c <= '\r');
    }
    return u_isUWhiteSpace(c);
}

// `\b` right after an ASCII word character: the next character must not be a word character,
// and, as in ICU, a combining or format character there is never a boundary.
bool boundaryAt(std::string_view text, size_t at) {
    if (at >= text.size()) {
        return true;
    }
    UChar32 c = codePointAt(text, at);
    if (c >= 0x80 &&
        (u_hasBinaryProperty(c, UCHAR_GRAPHEME_EXTEND) || u_charType(c) == U_FORMAT_CHAR)) {
        return false;
    }
    return !isWordCharacter(c);
}

// The first "<" + `name` (ASCII, lower case, ignoring case) at or after `from`.
size_t findOpening(std::string_view text, std::string_view name, size_t from) {
    const char* base = text.data();
    size_t size = text.size();
    while (from < size) {
        const void* hit = std::memchr(base + from, '<', size - from);
        if (!hit) {
            return std::string_view::npos;
        }
        size_t at = size_t(static_cast<const char*>(hit) - base);
        if (size - at > name.size()) {
            bool same = true;
            for (size_t i = 0; i < name.size() && same; ++i) {
                same = lowerASCII(base[at + 1 + i]) == name[i];
            }
            if (same) {
                return at;
            }
        }
        from = at + 1;
    }
    return std::string_view::npos;
}

// If a closing `</a\s*>` starts at `at`, the offset just after it.
std::optional<size_t> closingAnchorAt(std::string_view text, size_t at) {
    if (text.size() - at < 4 || text[at + 1] != '/' || lowerASCII(text[at + 2]) != 'a') {
        return std::nullopt;
    }
    size_t i = at + 3;
    while (i < text.size()) {
        if (text[i] == '>') {
            return i + 1;
        }
        size_t length = 1;
        if (!isRegexSpace(codePointAt(text, i, &length))) {
            return std::nullopt;
        }
        i += length;
    }
    return std::nullopt;
}

} // namespace

namespace {

// The first "<" at or after `from` that is followed by "a" or "i" in either case, which only
// the tags looked for start with; npos if none. Most tags are other tags, and stopping at each
// "<" costs more than looking past it, so where SSE2 is there this looks at 16 bytes at once.
size_t findTagCandidate(std::string_view text, size_t from) {
    const char* s = text.data();
    size_t size = text.size();
    size_t i = from;
#if defined(__SSE2__)
    const __m128i lessThan = _mm_set1_epi8('<');
    const __m128i caseBit = _mm_set1_epi8(0x20);
    const __m128i letterA = _mm_set1_epi8('a');
    const __m128i letterI = _mm_set1_epi8('i');
    auto hits = [&](size_t at) {
        __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + at));
        __m128i next =
            _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + at + 1)), caseBit);
        return unsigned(_mm_movemask_epi8(_mm_and_si128(
            _mm_cmpeq_epi8(here, lessThan),
            _mm_or_si128(_mm_cmpeq_epi8(next, letterA), _mm_cmpeq_epi8(next, letterI)))));
    };
    // Two blocks per round, tested together: one branch per 32 bytes.
    for (; i + 33 <= size; i += 32) {
        if (unsigned mask = hits(i) | hits(i + 16) << 16) {
            return i + size_t(__builtin_ctz(mask));
        }
    }
    for (; i + 17 <= size; i += 16) {
        if (unsigned mask = hits(i)) {
            return i + size_t(__builtin_ctz(mask));
        }
    }
#endif
    // Setting the 0x20 bit turns "A" and "I" into "a" and "i" and no other byte into them.
    for (; i + 1 < size; ++i) {
        if (s[i] == '<' && ((s[i + 1] | 0x20) == 'a' || (s[i + 1] | 0x20) == 'i')) {
            return i;
        }
    }
    return std::string_view::npos;
}

// Both searches in one walk over the "<" of the text (either may be left out). Each keeps the
// offset its pattern's search would go on from, and gives up on its own once nothing later
// can match; a "<" is looked at by a search only at or past that offset.
void scan(std::string_view html, std::vector<std::string_view>* images,
          std::vector<Anchor>* anchors) {
    constexpr size_t npos = std::string_view::npos;
    const char* base = html.data();
    size_t size = html.size();
    size_t imagesFrom = images ? 0 : npos;
    size_t anchorsFrom = anchors ? 0 : npos;
    // The next closing tag found so far; start offsets only grow, so each byte is searched
    // for closing tags at most once.
    size_t closingStart = 0;
    size_t closingEnd = 0;
    bool haveClosing = false;
    size_t position = 0;
    while (true) {
        size_t from = std::max(position, std::min(imagesFrom, anchorsFrom));
        if (from >= size) {
            break;
        }
        // Other "<" need no look: neither search would stop there.
        size_t at = findTagCandidate(html, from);
        if (at == npos) {
            break;
        }
        position = at + 1;
        char next = at + 1 < size ? lowerASCII(base[at + 1]) : '\0';
        if (next == 'i' && at >= imagesFrom && size - at > 3 && lowerASCII(base[at + 2]) == 'm' &&
            lowerASCII(base[at + 3]) == 'g' && boundaryAt(html, at + 4)) {
            size_t close = html.find('>', at + 4);
            if (close == npos) {
                imagesFrom = npos; // no later tag can end either
                continue;
            }
            images->push_back(html.substr(at, close + 1 - at));
            imagesFrom = close + 1;
        } else if (next == 'a' && at >= anchorsFrom && boundaryAt(html, at + 2)) {
            size_t gt = html.find('>', at + 2);
            if (gt == npos) {
                anchorsFrom = npos;
                continue;
            }
            if (!haveClosing || closingStart <= gt) {
                haveClosing = false;
                for (size_t search = gt + 1; search < size;) {
                    size_t lt = html.find('<', search);
                    if (lt == npos) {
                        break;
                    }
                    if (auto end = closingAnchorAt(html, lt)) {
                        closingStart = lt;
                        closingEnd = *end;
                        haveClosing = true;
                        break;
                    }
                    search = lt + 1;
                }
                if (!haveClosing) {
                    anchorsFrom = npos; // no closing tag after here: no later link can match
                    continue;
                }
            }
            anchors->push_back({html.substr(at, closingEnd - at), html.substr(at + 2, gt - at - 2),
                                html.substr(gt + 1, closingStart - gt - 1)});
            anchorsFrom = closingEnd;
        }
    }
}

} // namespace

std::vector<std::string_view> imgTags(std::string_view html) {
    std::vector<std::string_view> out;
    scan(html, &out, nullptr);
    return out;
}

std::vector<Anchor> anchors(std::string_view html) {
    std::vector<Anchor> out;
    scan(html, nullptr, &out);
    return out;
}

Tags tags(std::string_view html) {
    Tags out;
    scan(html, &out.images, &out.anchors);
    return out;
}

namespace {

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-';
}

// Past any `\s` characters from `at`.
size_t skipSpaces(std::string_view text, size_t at) {
    while (at < text.size()) {
        if (static_cast<unsigned char>(text[at]) < 0x80) { // ASCII: no decoding
            if (!isRegexSpace(UChar32(text[at]))) {
                break;
            }
            ++at;
            continue;
        }
        size_t length = 1;
        if (!isRegexSpace(codePointAt(text, at, &length))) {
            break;
        }
        at += length;
    }
    return at;
}

} // namespace

std::vector<Attribute> attributes(std::string_view tag) {
    std::vector<Attribute> out;
    attributes(tag, out);
    return out;
}

void attributes(std::string_view tag, std::vector<Attribute>& out) {
    out.clear();
    size_t at = 0;
    while (at < tag.size()) {
        if (!isNameCharacter(tag[at])) {
            ++at;
            continue;
        }
        // A match can only take the whole run of name characters: a shorter name would leave
        // a name character where the pattern wants a blank or "=". So when the run fails,
        // every start inside it fails too.
        size_t nameEnd = at;
        while (nameEnd < tag.size() && isNameCharacter(tag[nameEnd])) {
            ++nameEnd;
        }
        size_t equals = skipSpaces(tag, nameEnd);
        if (equals >= tag.size() || tag[equals] != '=') {
            at = nameEnd;
            continue;
        }
        size_t valueStart = skipSpaces(tag, equals + 1);
        size_t valueEnd = std::string_view::npos;
        if (valueStart < tag.size() && (tag[valueStart] == '"' || tag[valueStart] == '\'')) {
            size_t close = tag.find(tag[valueStart], valueStart + 1);
            if (close != std::string_view::npos) {
                valueEnd = close + 1;
            }
        }
        if (valueEnd == std::string_view::npos) {
            size_t i = valueStart;
            while (i < tag.size() && tag[i] != '>') {
                if (static_cast<unsigned char>(tag[i]) < 0x80) { // ASCII: no decoding
                    if (isRegexSpace(UChar32(tag[i]))) {
                        break;
                    }
                    ++i;
                    continue;
                }
                size_t length = 1;
                if (isRegexSpace(codePointAt(tag, i, &length))) {
                    break;
                }
                i += length;
            }
            if (i == valueStart) {
                at = nameEnd;
                continue;
            }
            valueEnd = i;
        }
        out.push_back({tag.substr(at, valueEnd - at), tag.substr(at, nameEnd - at),
                       tag.substr(valueStart, valueEnd - valueStart)});
        at = valueEnd;
    }
}

namespace {

bool isASCIILetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isLabelCharacter(char c) {
    return isASCIILetter(c) || (c >= '0' && c <= '9') || c == '-';
}

// The pattern's last label: at most this many letters.
constexpr size_t kMaxLastLabel = 24;

// A try at the labels from one offset.
struct DomainTry {
    /// The end of group 1, or npos when no match starts there.
    size_t end = std::string_view::npos;
    /// Where the labels joined by dots stop: the end of the last run of label characters
    /// looked at.
    size_t stop = 0;
    /// Where that last run starts.
    size_t lastRun = 0;
};

// Each repetition of `[a-z0-9-]+\.` takes a whole run of label characters and the dot after
// it (giving back part of a run leaves a label character where the dot must be); backtracking
// gives up whole repetitions, so the domain ends at the last dot that at least 2 letters
// follow, with up to 24 of them. The optional tail after it always matches.
DomainTry tryDomain(std::string_view text, size_t at) {
    DomainTry out;
    size_t i = at;
    while (true) {
        size_t run = i;
        while (run < text.size() && isLabelCharacter(text[run])) {
            ++run;
        }
        out.stop = run;
        out.lastRun = i;
        if (run == i || run >= text.size() || text[run] != '.') {
            return out;
        }
        i = run + 1;
        size_t letters = 0;
        while (i + letters < text.size() && letters < kMaxLastLabel &&
               isASCIILetter(text[i + letters])) {
            ++letters;
        }
        if (letters >= 2) {
            out.end = i + letters;
        }
    }
}

// The length of an "http://" or "https://" (any case) at `at`, or 0.
size_t schemePrefix(std::string_view text, size_t at) {
    for (std::string_view prefix : {std::string_view("http://"), std::string_view("https://")}) {
        if (text.size() - at < prefix.size()) {
            continue;
        }
        bool same = true;
        for (size_t i = 0; i < prefix.size() && same; ++i) {
            same = lowerASCII(text[at + i]) == prefix[i];
        }
        if (same) {
            return prefix.size();
        }
    }
    return 0;
}

// Group 1 of a match after a scheme at `at`, if one stands there and a domain follows it.
std::optional<std::string_view> domainAfterScheme(std::string_view text, size_t at) {
    size_t prefix = schemePrefix(text, at);
    if (prefix == 0) {
        return std::nullopt;
    }
    size_t end = tryDomain(text, at + prefix).end;
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    return text.substr(at + prefix, end - at - prefix);
}

} // namespace

std::optional<std::string_view> domainInASCIIText(std::string_view text) {
    // A match starts at a label character (a scheme starts with "h", one too). A start later
    // in the same labels joined by dots sees the same dots as an earlier one, only fewer of
    // them: once the first start fails, they all fail, except with a scheme, whose "http" or
    // "https" can only stand at the end of the last run (its ":" is neither a label character
    // nor a dot). So each character is looked at a bounded number of times.
    size_t at = 0;
    while (at < text.size()) {
        if (!isLabelCharacter(text[at])) {
            ++at;
            continue;
        }
        if (auto domain = domainAfterScheme(text, at)) {
            return domain;
        }
        DomainTry attempt = tryDomain(text, at);
        if (attempt.end != std::string_view::npos) {
            return text.substr(at, attempt.end - at);
        }
        for (size_t schemeName : {5, 4}) {
            size_t start = attempt.stop - std::min(attempt.stop, schemeName);
            if (start > at && start >= attempt.lastRun && attempt.stop - start == schemeName) {
                if (auto domain = domainAfterScheme(text, start)) {
                    return domain;
                }
            }
        }
        at = std::max(attempt.stop, at + 1);
    }
    return std::nullopt;
}

std::optional<size_t> endOfHeadTag(std::string_view html) {
    size_t at = findOpening(html, "head", 0);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    size_t close = html.find('>', at + 5);
    if (close == std::string_view::npos) {
        return std::nullopt;
    }
    return close + 1;
}

} // namespace qs::HTMLScanner
