#include "mime/Charsets.h"

#include "mime/TextTrim.h"
#include "support/Unicode.h"

#include <array>
#include <memory>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>
#include <unicode/ustring.h>
#include <unordered_map>
#include <utility>

namespace qs::Charsets {

namespace {

// Labels seen in real mail that the IANA table doesn't know, or knows as something narrower
// than what senders actually use (gb2312 mail is routinely GBK or GB18030).
constexpr std::array<std::pair<std::string_view, std::string_view>, 9> aliases{{
    {"utf8", "utf-8"},
    {"latin1", "iso-8859-1"},
    {"ascii", "us-ascii"},
    {"ks_c_5601-1987", "euc-kr"},
    {"x-sjis", "shift_jis"},
    {"gb2312", "gb18030"},
    {"gbk", "gb18030"},
    {"cp1252", "windows-1252"},
    {"unicode-1-1-utf-7", "utf-7"},
}};

// Converters are not thread-safe and cost an allocation to open, so each thread keeps the ones
// it has used. Mail uses a handful of charsets; the cap only guards against hostile labels.
constexpr size_t maxCachedConverters = 32;

struct ConverterCache {
    struct Close {
        void operator()(UConverter* converter) const { ucnv_close(converter); }
    };
    std::unordered_map<std::string, std::unique_ptr<UConverter, Close>> converters;

    UConverter* get(const std::string& name) {
        auto found = converters.find(name);
        if (found != converters.end()) {
            ucnv_reset(found->second.get());
            return found->second.get();
        }
        UErrorCode status = U_ZERO_ERROR;
        UConverter* converter = ucnv_open(name.c_str(), &status);
        if (U_FAILURE(status) || converter == nullptr) {
            if (converter != nullptr) {
                ucnv_close(converter);
            }
            return nullptr;
        }
        // Strict: stop at the first ill-formed or unmapped sequence.
        ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
        if (U_FAILURE(status)) {
            ucnv_close(converter);
            return nullptr;
        }
        if (converters.size() >= maxCachedConverters) {
            converters.clear();
        }
        converters.emplace(name, std::unique_ptr<UConverter, Close>(converter));
        return converter;
    }
};

UConverter* converter(const std::string& name) {
    thread_local ConverterCache cache;
    return cache.get(name);
}

// The IANA names first; the MIME and Windows tables add the few labels mailers use that IANA
// lacks (windows-874).
std::optional<std::string> canonicalName(const std::string& label) {
    for (const char* standard : {"IANA", "MIME", "WINDOWS"}) {
        UErrorCode status = U_ZERO_ERROR;
        const char* name = ucnv_getCanonicalName(label.c_str(), standard, &status);
        if (U_SUCCESS(status) && name != nullptr && *name != '\0') {
            return std::string(name);
        }
    }
    return std::nullopt;
}

const Encoding& windows1252() {
    static const Encoding encoding{canonicalName("windows-1252").value_or("windows-1252")};
    return encoding;
}

// The length of the ISO 2022 escape sequence at `at` (ESC, intermediate bytes 0x20-0x2F, one
// final byte 0x30-0x7E), or 0 if none starts there.
size_t escapeLength(std::string_view bytes, size_t at) {
    if (bytes[at] != '\x1b') {
        return 0;
    }
    size_t i = at + 1;
    while (i < bytes.size() && bytes[i] >= 0x20 && bytes[i] <= 0x2f) {
        ++i;
    }
    if (i == at + 1 || i >= bytes.size() || bytes[i] < 0x30 || bytes[i] > 0x7e) {
        return 0;
    }
    return i + 1 - at;
}

// Japanese mailers fold a subject into encoded words that each end with a switch back to
// ASCII, so joined words hold "ESC ( B" directly followed by "ESC $ B". The converter refuses
// such a switch that selects nothing; every mail reader drops it, and so do we: of escape
// sequences in a row, only the last counts.
std::string withoutRedundantEscapes(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    size_t i = 0;
    while (i < bytes.size()) {
        size_t length = escapeLength(bytes, i);
        if (length == 0) {
            out.push_back(bytes[i++]);
            continue;
        }
        if (i + length >= bytes.size() || escapeLength(bytes, i + length) == 0) {
            out.append(bytes.substr(i, length));
        }
        i += length;
    }
    return out;
}

bool isISO2022(const Encoding& encoding) {
    return encoding.converterName.starts_with("ISO_2022");
}

std::string repairedUTF8(std::string_view bytes) {
    return Unicode::toUTF8(Unicode::fromUTF8(bytes));
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Encoding& encoding) {
    return out << "Encoding(" << encoding.converterName << ")";
}

std::optional<Encoding> encoding(std::optional<std::string_view> label) {
    if (!label) {
        return std::nullopt;
    }
    std::string_view trimmed = *label;
    auto isTrimmed = [](char c) {
        return c == '"' || c == ' ';
    };
    while (!trimmed.empty() && isTrimmed(trimmed.front())) {
        trimmed.remove_prefix(1);
    }
    while (!trimmed.empty() && isTrimmed(trimmed.back())) {
        trimmed.remove_suffix(1);
    }
    if (trimmed.empty()) {
        return std::nullopt;
    }
    std::string name = TextTrim::asciiLower(trimmed);
    for (const auto& [from, to] : aliases) {
        if (name == from) {
            name = to;
            break;
        }
    }
    if (name == "utf-8" || name == "us-ascii") {
        return Encoding{"UTF-8"};
    }
    // A label with a NUL byte would be cut short by the C interface.
    if (name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    auto canonical = canonicalName(name);
    // A name the library knows but whose table this build leaves out is as good as unknown.
    if (!canonical || converter(*canonical) == nullptr) {
        return std::nullopt;
    }
    return Encoding{*canonical};
}

std::optional<std::string> decodeStrict(std::string_view bytes, const Encoding& encoding) {
    if (encoding.isUTF8()) {
        if (!Unicode::isValidUTF8(bytes)) {
            return std::nullopt;
        }
        return std::string(bytes);
    }
    UConverter* conv = converter(encoding.converterName);
    if (conv == nullptr) {
        return std::nullopt;
    }
    std::string mended;
    if (isISO2022(encoding) && bytes.find('\x1b') != std::string_view::npos) {
        mended = withoutRedundantEscapes(bytes);
        bytes = mended;
    }
    std::u16string units;
    // Most charsets give at most one UTF-16 unit per byte; grow if one doesn't.
    units.resize(bytes.size() + 16);
    const char* source = bytes.data();
    const char* sourceEnd = bytes.data() + bytes.size();
    size_t written = 0;
    for (;;) {
        UChar* target = reinterpret_cast<UChar*>(units.data()) + written;
        UChar* targetStart = target;
        UChar* targetEnd = reinterpret_cast<UChar*>(units.data()) + units.size();
        UErrorCode status = U_ZERO_ERROR;
        ucnv_toUnicode(conv, &target, targetEnd, &source, sourceEnd, nullptr, true, &status);
        written += size_t(target - targetStart);
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            units.resize(units.size() * 2);
            continue;
        }
        if (U_FAILURE(status)) {
            return std::nullopt;
        }
        break;
    }
    std::string out;
    out.resize(written * 3);
    int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8(out.data(), int32_t(out.size()), &length,
                reinterpret_cast<const UChar*>(units.data()), int32_t(written), &status);
    if (U_FAILURE(status)) {
        // Lone surrogates (possible from UTF-7 or UTF-16 labels) are not text.
        return std::nullopt;
    }
    out.resize(size_t(length));
    return out;
}

std::optional<std::string> encodeStrict(std::string_view text, const Encoding& encoding) {
    if (!Unicode::isValidUTF8(text)) {
        return std::nullopt;
    }
    if (encoding.isUTF8()) {
        return std::string(text);
    }
    UErrorCode status = U_ZERO_ERROR;
    UConverter* conv = ucnv_open(encoding.converterName.c_str(), &status);
    if (U_FAILURE(status) || conv == nullptr) {
        return std::nullopt;
    }
    std::unique_ptr<UConverter, void (*)(UConverter*)> owned(conv, ucnv_close);
    ucnv_setFromUCallBack(conv, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    icu::UnicodeString units = Unicode::fromUTF8(text);
    std::string out(size_t(units.length()) * 4 + 16, '\0');
    int32_t length = ucnv_fromUChars(conv, out.data(), int32_t(out.size()), units.getBuffer(),
                                     units.length(), &status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    out.resize(size_t(length));
    return out;
}

std::string string(std::string_view bytes, std::optional<std::string_view> charset) {
    std::optional<Encoding> named = encoding(charset);
    if (named) {
        if (auto text = decodeStrict(bytes, *named)) {
            return std::move(*text);
        }
    }
    if (!named || !named->isUTF8()) {
        if (Unicode::isValidUTF8(bytes)) {
            return std::string(bytes);
        }
    }
    if (auto text = decodeStrict(bytes, windows1252())) {
        return std::move(*text);
    }
    return repairedUTF8(bytes);
}

} // namespace qs::Charsets
