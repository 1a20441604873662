#include "imap/IMAPResponseParser.h"

#include "support/Unicode.h"

#include <cstdint>
#include <limits>
#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace qs::IMAPResponseParser {

namespace {

using Kind = IMAPParseError::Kind;

// A tagged line that isn't one is quoted in the error up to this many bytes, enough to show
// what the server said without carrying a whole body into an error text.
constexpr std::size_t quotedLineLimit = 80;

// No status word is longer than PREAUTH: 7 characters of at most 4 UTF-8 bytes each. Longer
// words can't upper-case to one, so they skip the Unicode case mapping.
constexpr std::size_t statusWordLimit = 7 * 4;
// Likewise for NIL, 3 characters.
constexpr std::size_t nilWordLimit = 3 * 4;

/// Bytes as UTF-8 text, each ill-formed sequence replaced by U+FFFD.
std::string repaired(std::string_view bytes) {
    if (Unicode::isValidUTF8(bytes)) {
        return std::string(bytes);
    }
    return Unicode::toUTF8(Unicode::fromUTF8(bytes));
}

/// Full Unicode upper-casing, as keywords are compared in upper case ("nıl" is NIL too).
std::string upper(std::string_view text) {
    bool ascii = true;
    std::string out(text);
    for (char& c : out) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            ascii = false;
            break;
        }
        if (c >= 'a' && c <= 'z') {
            c = char(c - 'a' + 'A');
        }
    }
    if (ascii) {
        return out;
    }
    icu::UnicodeString unicode = Unicode::fromUTF8(text);
    unicode.toUpper(icu::Locale::getRoot());
    return Unicode::toUTF8(unicode);
}

std::optional<IMAPStatus> statusWord(std::string_view word) {
    if (word.size() > statusWordLimit) {
        return std::nullopt;
    }
    return imapStatus(upper(word));
}

bool isASCII(std::string_view text) {
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            return false;
        }
    }
    return true;
}

bool isNil(std::string_view atom) {
    if (atom.size() > nilWordLimit) {
        return false;
    }
    if (isASCII(atom)) { // the common case, without building an upper-case copy
        return atom.size() == 3 && (atom[0] | 0x20) == 'n' && (atom[1] | 0x20) == 'i' &&
               (atom[2] | 0x20) == 'l';
    }
    return upper(atom) == "NIL";
}

bool isDigit(unsigned char byte) {
    return byte >= '0' && byte <= '9';
}

/// The byte taken as the code point of the same number, in UTF-8.
std::string codePoint(unsigned char byte) {
    if (byte < 0x80) {
        return std::string(1, char(byte));
    }
    return {char(0xC0 | (byte >> 6)), char(0x80 | (byte & 0x3F))};
}

/// A cursor over the bytes of one raw response.
struct Scanner {
    std::string_view bytes;
    std::size_t pos = 0;

    bool atEnd() const { return pos >= bytes.size(); }
    unsigned char peek() const { return static_cast<unsigned char>(bytes[pos]); }

    void skipSpaces() {
        while (!atEnd() && bytes[pos] == ' ') {
            ++pos;
        }
    }

    /// A run of bytes up to the next space or the end; never empty. Leaves the cursor on the
    /// space after it.
    std::optional<std::string> readWord() {
        if (atEnd() || bytes[pos] == ' ') {
            return std::nullopt;
        }
        std::size_t from = pos;
        std::size_t space = bytes.find(' ', pos);
        pos = space == std::string_view::npos ? bytes.size() : space;
        return repaired(bytes.substr(from, pos - from));
    }

    std::string rest() {
        std::string text = repaired(bytes.substr(std::min(pos, bytes.size())));
        pos = bytes.size();
        return text;
    }
};

struct CodeAndText {
    std::optional<std::string> code;
    std::string text;
};

CodeAndText readCodeAndText(Scanner& scanner) {
    CodeAndText result;
    if (!scanner.atEnd() && scanner.peek() == '[') {
        std::string_view bytes = scanner.bytes;
        std::size_t from = scanner.pos + 1;
        std::size_t at = from;
        std::int64_t depth = 1;
        for (; at < bytes.size(); ++at) {
            if (bytes[at] == '[') {
                ++depth;
            } else if (bytes[at] == ']' && --depth == 0) {
                break;
            }
        }
        // A code that is never closed runs to the end of the response.
        result.code = repaired(bytes.substr(from, at - from));
        scanner.pos = at < bytes.size() ? at + 1 : bytes.size();
        scanner.skipSpaces();
    }
    result.text = scanner.rest();
    return result;
}

IMAPValue readQuoted(Scanner& scanner) {
    std::string_view bytes = scanner.bytes;
    std::string out;
    std::size_t at = scanner.pos + 1;
    for (;;) {
        // Runs between quotes and backslashes are taken whole.
        std::size_t special = bytes.find_first_of("\"\\", at);
        if (special == std::string_view::npos) {
            scanner.pos = bytes.size();
            throw IMAPParseError(Kind::unterminatedString);
        }
        out.append(bytes.substr(at, special - at));
        if (bytes[special] == '"') {
            scanner.pos = special + 1;
            return IMAPValue::string(std::move(out));
        }
        if (special + 1 < bytes.size()) {
            out += bytes[special + 1];
            at = special + 2;
        } else {
            // A final backslash stays an ordinary byte; the string then has no closing quote.
            out += '\\';
            scanner.pos = bytes.size();
            throw IMAPParseError(Kind::unterminatedString);
        }
    }
}

IMAPValue readLiteral(Scanner& scanner) {
    std::string_view bytes = scanner.bytes;
    std::size_t at = scanner.pos + 1;
    std::size_t digitsFrom = at;
    std::int64_t length = 0;
    bool overflow = false;
    while (at < bytes.size() && isDigit(bytes[at])) {
        int digit = bytes[at] - '0';
        if (length > (std::numeric_limits<std::int64_t>::max() - digit) / 10) {
            overflow = true;
        } else {
            length = length * 10 + digit;
        }
        ++at;
    }
    if (at == digitsFrom || overflow) {
        scanner.pos = at;
        throw IMAPParseError(Kind::badLiteral);
    }
    if (at < bytes.size() && bytes[at] == '+') {
        ++at;
    }
    if (at >= bytes.size() || bytes[at] != '}') {
        scanner.pos = at;
        throw IMAPParseError(Kind::badLiteralClose);
    }
    ++at;
    if (at < bytes.size() && bytes[at] == '\r') {
        ++at;
    }
    if (at < bytes.size() && bytes[at] == '\n') {
        ++at;
    }
    // Checked before anything is allocated, so an announced length costs nothing by itself.
    if (std::uint64_t(length) > bytes.size() - at) {
        scanner.pos = at;
        throw IMAPParseError(Kind::shortLiteral);
    }
    scanner.pos = at + std::size_t(length);
    return IMAPValue::string(std::string(bytes.substr(at, std::size_t(length))));
}

bool endsAtom(unsigned char byte) {
    return byte == ' ' || byte == '\r' || byte == '\n' || byte == '(' || byte == ')';
}

IMAPValue readAtom(Scanner& scanner) {
    std::string_view bytes = scanner.bytes;
    std::size_t from = scanner.pos;
    std::size_t at = from;
    // Brackets make `BODY[HEADER.FIELDS (SUBJECT)]` one atom. The depth is deliberately not
    // clamped: after a stray `]` the stop bytes no longer end the atom until a `[` restores it.
    std::int64_t depth = 0;
    for (; at < bytes.size(); ++at) {
        unsigned char byte = bytes[at];
        if (byte == '[') {
            ++depth;
        } else if (byte == ']') {
            --depth;
        } else if (depth == 0 && endsAtom(byte)) {
            break;
        }
    }
    if (at == from) {
        scanner.pos = at + 1;
        throw IMAPParseError(Kind::unexpectedCharacter, codePoint(bytes[at]));
    }
    scanner.pos = at;
    std::string text = repaired(bytes.substr(from, at - from));
    if (isNil(text)) {
        return IMAPValue::nil();
    }
    return IMAPValue::atom(std::move(text));
}

/// One value at the cursor. Lists are read with an explicit stack of open lists rather than by
/// recursion, so any nesting depth is read without exhausting the call stack.
IMAPValue readValue(Scanner& scanner) {
    std::vector<std::vector<IMAPValue>> open;
    for (;;) {
        if (!open.empty()) {
            scanner.skipSpaces();
            if (scanner.atEnd()) {
                throw IMAPParseError(Kind::unterminatedList);
            }
            if (scanner.peek() == ')') {
                ++scanner.pos;
                IMAPValue list = IMAPValue::list(std::move(open.back()));
                open.pop_back();
                if (open.empty()) {
                    return list;
                }
                open.back().push_back(std::move(list));
                continue;
            }
        } else if (scanner.atEnd()) {
            throw IMAPParseError(Kind::unexpectedEnd);
        }
        IMAPValue value;
        switch (scanner.peek()) {
        case '(':
            ++scanner.pos;
            open.emplace_back();
            continue;
        case '"':
            value = readQuoted(scanner);
            break;
        case '{':
            value = readLiteral(scanner);
            break;
        default:
            value = readAtom(scanner);
            break;
        }
        if (open.empty()) {
            return value;
        }
        open.back().push_back(std::move(value));
    }
}

std::vector<IMAPValue> readValues(Scanner& scanner) {
    std::vector<IMAPValue> values;
    for (;;) {
        scanner.skipSpaces();
        if (scanner.atEnd()) {
            return values;
        }
        values.push_back(readValue(scanner));
    }
}

} // namespace

IMAPResponse parse(std::string_view raw) {
    Scanner scanner{raw};
    if (!raw.empty() && raw.front() == '+') {
        scanner.pos = 1;
        if (!scanner.atEnd() && scanner.peek() == ' ') {
            scanner.skipSpaces();
        }
        return IMAPResponse::Continuation{scanner.rest()};
    }

    std::optional<std::string> first = scanner.readWord();
    if (!first) {
        throw IMAPParseError(Kind::emptyResponse);
    }
    scanner.skipSpaces();
    std::size_t afterFirst = scanner.pos;

    if (*first == "*") {
        if (auto second = scanner.readWord()) {
            if (auto status = statusWord(*second)) {
                scanner.skipSpaces();
                auto [code, text] = readCodeAndText(scanner);
                return IMAPResponse::UntaggedStatus{*status, std::move(code), std::move(text)};
            }
        }
        scanner.pos = afterFirst;
        return IMAPResponse::Untagged{readValues(scanner)};
    }

    std::optional<std::string> second = scanner.readWord();
    std::optional<IMAPStatus> status = second ? statusWord(*second) : std::nullopt;
    if (!status) {
        throw IMAPParseError(Kind::badTaggedResponse, repaired(raw.substr(0, quotedLineLimit)));
    }
    scanner.skipSpaces();
    auto [code, text] = readCodeAndText(scanner);
    return IMAPResponse::Tagged{std::move(*first), *status, std::move(code), std::move(text)};
}

std::vector<IMAPValue> tokens(std::string_view text) {
    Scanner scanner{text};
    return readValues(scanner);
}

} // namespace qs::IMAPResponseParser
