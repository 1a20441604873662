#include "mime/EncodedWords.h"

#include "mime/Charsets.h"
#include "mime/TextTrim.h"
#include "mime/TransferDecoding.h"

namespace qs::EncodedWords {

namespace {

// Finds where a word's payload stops: at the first "?=" (the word's end) or the first space
// (which makes it no word). Remembers its last answer: the decode loop asks from positions that
// only grow, and a text full of unterminated words would otherwise be scanned again from each.
class PayloadEnd {
public:
    explicit PayloadEnd(std::string_view text) : text_(text) {}

    size_t from(size_t start) {
        if (start >= from_ && start <= found_ && found_ != unset) {
            return found_;
        }
        from_ = start;
        found_ = text_.size();
        for (size_t i = start; i < text_.size(); ++i) {
            char c = text_[i];
            if (c == ' ' || (c == '?' && i + 1 < text_.size() && text_[i + 1] == '=')) {
                found_ = i;
                break;
            }
        }
        return found_;
    }

private:
    static constexpr size_t unset = size_t(-1);
    std::string_view text_;
    size_t from_ = 0;
    size_t found_ = unset;
};

bool hasEightBit(std::string_view text) {
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            return true;
        }
    }
    return false;
}

// `offset` is where the word starts in `text`, which begins with "=?" there.
std::optional<Word> wordAt(std::string_view text, size_t offset, PayloadEnd& payloadEnd) {
    size_t charsetStart = offset + 2;
    size_t q1 = text.find('?', charsetStart);
    if (q1 == std::string_view::npos) {
        return std::nullopt;
    }
    size_t q2 = text.find('?', q1 + 1);
    if (q2 == std::string_view::npos) {
        return std::nullopt;
    }
    size_t payloadStart = q2 + 1;
    size_t stop = payloadEnd.from(payloadStart);
    if (stop >= text.size() || text[stop] != '?') {
        return std::nullopt; // no "?=", or a space in the payload
    }
    std::string_view charset = text.substr(charsetStart, q1 - charsetStart);
    if (auto star = charset.find('*'); star != std::string_view::npos) {
        charset = charset.substr(0, star); // RFC 2231 language suffix
    }
    std::string_view encoding = text.substr(q1 + 1, q2 - q1 - 1);
    std::string_view payload = text.substr(payloadStart, stop - payloadStart);
    Word word;
    if (TextTrim::equalsIgnoringCase(encoding, "B")) {
        word.bytes = TransferDecoding::base64(payload);
    } else if (TextTrim::equalsIgnoringCase(encoding, "Q")) {
        std::string spaced(payload);
        for (char& c : spaced) {
            if (c == '_') {
                c = ' ';
            }
        }
        // Mailers put 8-bit bytes of the word's charset into Q words unescaped. By now the
        // header is text, so those bytes are characters again: they go back into the word's
        // charset, or they would be read twice ("FrÃ¶sche" for "Frösche").
        if (hasEightBit(spaced)) {
            auto named = Charsets::encoding(charset);
            if (named && !named->isUTF8()) {
                if (auto bytes = Charsets::encodeStrict(spaced, *named)) {
                    spaced = std::move(*bytes);
                }
            }
        }
        word.bytes = TransferDecoding::quotedPrintable(spaced, true);
    } else {
        return std::nullopt;
    }
    word.charset = std::string(charset);
    word.end = stop + 2 - offset;
    return word;
}

bool isGapCharacter(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Word& word) {
    return out << "Word{bytes: \"" << word.bytes << "\", charset: \"" << word.charset
               << "\", end: " << word.end << "}";
}

std::optional<Word> decodeWord(std::string_view text) {
    if (text.size() < 2 || text[0] != '=' || text[1] != '?') {
        return std::nullopt;
    }
    PayloadEnd payloadEnd(text);
    return wordAt(text, 0, payloadEnd);
}

std::string decode(std::string_view text) {
    if (text.find("=?") == std::string_view::npos) {
        return std::string(text);
    }
    std::string out;
    out.reserve(text.size());
    std::string pending;
    std::optional<std::string> pendingCharset;
    std::string_view gap; // always a run of gap characters just before `i`
    bool previousWasWord = false;
    PayloadEnd payloadEnd(text);

    auto flush = [&] {
        if (pendingCharset) {
            out += Charsets::string(pending, *pendingCharset);
        }
        pending.clear();
        pendingCharset.reset();
    };

    size_t i = 0;
    while (i < text.size()) {
        if (text[i] == '=' && i + 1 < text.size() && text[i + 1] == '?') {
            if (auto word = wordAt(text, i, payloadEnd)) {
                // Same charset: the bytes join, so a character split across words survives.
                if (!pendingCharset ||
                    !TextTrim::equalsIgnoringCase(*pendingCharset, word->charset)) {
                    flush();
                }
                // Whitespace between two encoded words is not part of the text.
                if (!previousWasWord) {
                    out += gap;
                }
                gap = {};
                pending += word->bytes;
                pendingCharset = std::move(word->charset);
                previousWasWord = true;
                i += word->end;
                continue;
            }
        }
        char c = text[i];
        if (isGapCharacter(c)) {
            gap = gap.empty() ? text.substr(i, 1) : text.substr(i - gap.size(), gap.size() + 1);
        } else {
            flush();
            out += gap;
            out.push_back(c);
            gap = {};
            previousWasWord = false;
        }
        ++i;
    }
    flush();
    out += gap;
    return out;
}

} // namespace qs::EncodedWords
