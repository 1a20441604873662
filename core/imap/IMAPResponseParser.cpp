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

/// Thrown when a parse over a response with held literals reaches the end of the text before
/// one of them other than as a literal value: the whole bytes must be parsed instead.
struct Crossing {};

/// A cursor over the bytes of one raw response. When the response's literals are held apart,
/// `bytes` is one stretch of its text at a time, from one held literal to the next: reading a
/// held literal's announcement moves the cursor on to the next stretch, and any other read
/// reaching the end of a stretch that isn't the last throws `Crossing`.
struct Scanner {
    std::string_view bytes;
    std::size_t pos = 0;

    // Held literals, when there are any.
    std::string_view text = {};
    std::size_t textAt = 0;
    std::span<HeldLiteral> held = {};
    std::size_t nextHeld = 0;            // the literal ending the current stretch
    std::size_t strings = 0;             // string values made so far, in order
    std::vector<std::size_t> taken = {}; // which of them stand for held literals

    bool last() const { return nextHeld == held.size(); }

    /// Called where a read meets the end of `bytes`.
    void atEndOfBytes() const {
        if (!last()) {
            throw Crossing{};
        }
    }

    /// Moves on to the stretch between held literal `nextHeld` and the one after it.
    void nextStretch() {
        std::size_t from = held[nextHeld].at - textAt;
        ++nextHeld;
        std::size_t to = last() ? text.size() : held[nextHeld].at - textAt;
        bytes = text.substr(from, to - from);
        pos = 0;
    }

    bool atEnd() const {
        if (pos >= bytes.size()) {
            atEndOfBytes();
            return true;
        }
        return false;
    }
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
        if (space == std::string_view::npos) {
            atEndOfBytes();
        }
        pos = space == std::string_view::npos ? bytes.size() : space;
        return repaired(bytes.substr(from, pos - from));
    }

    std::string rest() {
        atEndOfBytes();
        std::string text = repaired(bytes.substr(std::min(pos, bytes.size())));
        pos = bytes.size();
        return text;
    }

    IMAPValue string(std::string bytes) {
        ++strings;
        return IMAPValue::string(std::move(bytes));
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
        if (at == bytes.size()) {
            scanner.atEndOfBytes();
        }
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
            scanner.atEndOfBytes();
            scanner.pos = bytes.size();
            throw IMAPParseError(Kind::unterminatedString);
        }
        out.append(bytes.substr(at, special - at));
        if (bytes[special] == '"') {
            scanner.pos = special + 1;
            return scanner.string(std::move(out));
        }
        if (special + 1 < bytes.size()) {
            out += bytes[special + 1];
            at = special + 2;
        } else {
            // A final backslash stays an ordinary byte; the string then has no closing quote.
            scanner.atEndOfBytes();
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
    if (at == bytes.size()) {
        scanner.atEndOfBytes();
    }
    if (at == digitsFrom || overflow) {
        scanner.pos = at;
        throw IMAPParseError(Kind::badLiteral);
    }
    if (at < bytes.size() && bytes[at] == '+') {
        ++at;
        if (at == bytes.size()) {
            scanner.atEndOfBytes();
        }
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
    if (at == bytes.size() && !scanner.last()) {
        // The announcement of a held literal (a stretch ends just past its line feed, and the
        // digits before it are the ones the reader saw): its bytes are moved in afterwards.
        if (scanner.held[scanner.nextHeld].bytes.size() != std::uint64_t(length)) {
            throw Crossing{};
        }
        scanner.taken.push_back(scanner.strings);
        scanner.nextStretch();
        return scanner.string({});
    }
    // Checked before anything is allocated, so an announced length costs nothing by itself.
    if (std::uint64_t(length) > bytes.size() - at) {
        scanner.atEndOfBytes();
        scanner.pos = at;
        throw IMAPParseError(Kind::shortLiteral);
    }
    scanner.pos = at + std::size_t(length);
    return scanner.string(std::string(bytes.substr(at, std::size_t(length))));
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
    if (at == bytes.size()) {
        scanner.atEndOfBytes();
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

namespace {

IMAPResponse parse(Scanner& scanner) {
    if (!scanner.atEnd() && scanner.peek() == '+') {
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
        if (!scanner.held.empty()) {
            throw Crossing{}; // the quoted start may run into a held literal
        }
        throw IMAPParseError(Kind::badTaggedResponse,
                             repaired(scanner.bytes.substr(0, quotedLineLimit)));
    }
    scanner.skipSpaces();
    auto [code, text] = readCodeAndText(scanner);
    return IMAPResponse::Tagged{std::move(*first), *status, std::move(code), std::move(text)};
}

/// Moves each held literal into the string value that stands for it: the `taken[i]`-th string
/// value in reading order, which is the order of a walk of the values, lists before their
/// contents.
void moveLiteralsIn(std::vector<IMAPValue>& values, std::span<const std::size_t> taken,
                    std::span<HeldLiteral> held) {
    std::size_t ordinal = 0;
    std::size_t next = 0;
    std::vector<std::span<IMAPValue>> open{std::span<IMAPValue>(values)};
    while (!open.empty() && next < taken.size()) {
        std::span<IMAPValue>& rest = open.back();
        if (rest.empty()) {
            open.pop_back();
            continue;
        }
        IMAPValue& value = rest.front();
        rest = rest.subspan(1);
        if (value.isString()) {
            if (ordinal == taken[next]) {
                value = IMAPValue::string(std::move(held[next].bytes));
                ++next;
            }
            ++ordinal;
        } else if (value.isList()) {
            open.push_back(value.items());
        }
    }
}

} // namespace

IMAPResponse parse(std::string_view raw) {
    Scanner scanner{raw};
    return parse(scanner);
}

IMAPResponse parse(std::string_view text, std::size_t textAt, std::span<HeldLiteral> literals) {
    if (literals.empty()) {
        return parse(text);
    }
    try {
        Scanner scanner{text.substr(0, literals.front().at - textAt)};
        scanner.text = text;
        scanner.textAt = textAt;
        scanner.held = literals;
        IMAPResponse response = parse(scanner);
        // Every held literal was read as a literal value, hence the response is untagged.
        if (IMAPResponse::Untagged* untagged = response.untagged();
            untagged && scanner.last() && scanner.taken.size() == literals.size()) {
            moveLiteralsIn(untagged->values, scanner.taken, literals);
            return response;
        }
    } catch (const Crossing&) {
    }
    std::string whole;
    std::size_t from = 0;
    for (const HeldLiteral& literal : literals) {
        whole.append(text.substr(from, literal.at - textAt - from));
        whole.append(literal.bytes);
        from = literal.at - textAt;
    }
    whole.append(text.substr(from));
    return parse(std::string_view(whole));
}

std::vector<IMAPValue> tokens(std::string_view text) {
    Scanner scanner{text};
    return readValues(scanner);
}

} // namespace qs::IMAPResponseParser
