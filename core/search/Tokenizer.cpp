#include "search/Tokenizer.h"

#include <array>
#include <cstdlib>
#include <memory>
#include <string>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace qs::Tokenizer {

namespace {

// ASCII letters and digits are exactly the ASCII scalars that are Alphabetic or numeric, and
// folding leaves ASCII as ASCII (lower case), so ASCII text needs no ICU at all.
constexpr std::array<bool, 128> asciiWordTable = [] {
    std::array<bool, 128> table{};
    for (int c = '0'; c <= '9'; ++c) {
        table[size_t(c)] = true;
    }
    for (int c = 'a'; c <= 'z'; ++c) {
        table[size_t(c)] = true;
        table[size_t(c - 'a' + 'A')] = true;
    }
    return table;
}();

// An ASCII byte that isn't a letter or digit always ends a word: no grapheme cluster can carry
// it into one (a cluster that starts with it is no word character, and a Prepend scalar that
// swallows it is none either).
inline bool isDelimiter(unsigned char c) {
    return c < 0x80 && !asciiWordTable[c];
}

inline bool isWordScalar(UChar32 c) {
    return u_hasBinaryProperty(c, UCHAR_ALPHABETIC) ||
           u_getIntPropertyValue(c, UCHAR_NUMERIC_TYPE) != U_NT_NONE;
}

// The ICU objects of the slow path, made once per thread (BreakIterator is not thread-safe).
struct SlowPath {
    std::unique_ptr<icu::BreakIterator> characters;
    const icu::Normalizer2* nfd = nullptr;
    icu::UnicodeString source, decomposed, folded, word;
    std::string utf8;

    SlowPath() {
        UErrorCode status = U_ZERO_ERROR;
        characters.reset(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        nfd = icu::Normalizer2::getNFDInstance(status);
        if (U_FAILURE(status) || !characters || !nfd) {
            std::abort();
        }
    }
};

SlowPath& slowPath() {
    thread_local SlowPath path;
    return path;
}

// Folds and walks one stretch of text that holds non-ASCII bytes. The stretch starts with the
// delimiter before the word run (when there is one), so a mark at the run's start clusters
// with that delimiter as it would in the whole text.
void scanSlow(std::string_view stretch, Emit emit, void* context) {
    auto& p = slowPath();
    p.source =
        icu::UnicodeString::fromUTF8(icu::StringPiece(stretch.data(), int32_t(stretch.size())));
    UErrorCode status = U_ZERO_ERROR;
    const icu::UnicodeString* decomposed = &p.source;
    if (!p.nfd->isNormalized(p.source, status)) {
        p.nfd->normalize(p.source, p.decomposed, status);
        decomposed = &p.decomposed;
    }
    p.folded.remove();
    for (int32_t i = 0; i < decomposed->length();) {
        UChar32 c = decomposed->char32At(i);
        if (u_charType(c) != U_NON_SPACING_MARK) {
            p.folded.append(c);
        }
        i += U16_LENGTH(c);
    }
    p.folded.foldCase();

    p.word.remove();
    size_t clusters = 0;
    auto finish = [&] {
        if (clusters >= minimumLength) {
            p.utf8.clear();
            p.word.toUTF8String(p.utf8);
            emit(context, p.utf8);
        }
        p.word.remove();
        clusters = 0;
    };
    auto& it = *p.characters;
    it.setText(p.folded);
    int32_t start = it.first();
    for (int32_t end = it.next(); end != icu::BreakIterator::DONE; start = end, end = it.next()) {
        if (isWordScalar(p.folded.char32At(start))) {
            if (clusters < maximumLength) {
                p.word.append(p.folded, start, end - start);
            }
            ++clusters;
        } else {
            finish();
        }
    }
    finish();
}

} // namespace

void scan(std::string_view text, Emit emit, void* context) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    size_t n = text.size();
    char word[maximumLength];
    size_t i = 0;
    while (i < n) {
        if (isDelimiter(bytes[i])) {
            ++i;
            continue;
        }
        size_t start = i;
        bool ascii = true;
        for (; i < n && !isDelimiter(bytes[i]); ++i) {
            ascii = ascii && bytes[i] < 0x80;
        }
        if (ascii) {
            size_t length = i - start;
            if (length >= minimumLength) {
                length = std::min(length, maximumLength);
                for (size_t k = 0; k < length; ++k) {
                    unsigned char c = bytes[start + k];
                    word[k] = char(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
                }
                emit(context, std::string_view(word, length));
            }
        } else {
            size_t from = start > 0 ? start - 1 : start;
            scanSlow(text.substr(from, i - from), emit, context);
        }
    }
}

} // namespace qs::Tokenizer
