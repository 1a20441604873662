#include "support/Unicode.h"

#include <memory>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace qs::Unicode {

// BreakIterator is not thread-safe; each thread keeps its own, made once.
icu::BreakIterator& characterIterator() {
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> it(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status) || !it) {
            std::abort();
        }
        return it;
    }();
    return *iterator;
}

icu::UnicodeString fromUTF8(std::string_view utf8) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), int32_t(utf8.size())));
}

std::string toUTF8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

bool isValidUTF8(std::string_view bytes) {
    int32_t i = 0;
    auto length = static_cast<int32_t>(bytes.size());
    const auto* s = reinterpret_cast<const uint8_t*>(bytes.data());
    while (i < length) {
        UChar32 c;
        U8_NEXT(s, i, length, c);
        if (c < 0) {
            return false;
        }
    }
    return true;
}

std::vector<std::string_view> graphemes(std::string_view utf8) {
    std::vector<std::string_view> out;
    if (utf8.empty()) {
        return out;
    }
    UErrorCode status = U_ZERO_ERROR;
    UText text = UTEXT_INITIALIZER;
    utext_openUTF8(&text, utf8.data(), int64_t(utf8.size()), &status);
    if (U_FAILURE(status)) {
        out.push_back(utf8);
        return out;
    }
    auto& it = characterIterator();
    it.setText(&text, status);
    // With UTF-8 UText, boundaries are native (byte) indexes.
    int32_t start = it.first();
    for (int32_t end = it.next(); end != icu::BreakIterator::DONE; start = end, end = it.next()) {
        out.push_back(utf8.substr(size_t(start), size_t(end - start)));
    }
    it.setText(icu::UnicodeString());
    utext_close(&text);
    return out;
}

size_t graphemeCount(std::string_view utf8) {
    return graphemes(utf8).size();
}

std::string fold(std::string_view utf8) {
    UErrorCode status = U_ZERO_ERROR;
    static const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    auto text = fromUTF8(utf8);
    icu::UnicodeString decomposed = nfd->normalize(text, status);
    icu::UnicodeString kept;
    kept.getBuffer(decomposed.length());
    kept.releaseBuffer(0);
    for (int32_t i = 0; i < decomposed.length();) {
        UChar32 c = decomposed.char32At(i);
        if (u_charType(c) != U_NON_SPACING_MARK) {
            kept.append(c);
        }
        i += U16_LENGTH(c);
    }
    kept.foldCase();
    return toUTF8(kept);
}

} // namespace qs::Unicode
