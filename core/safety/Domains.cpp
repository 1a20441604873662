#include "safety/Domains.h"

#include "safety/TextUtil.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <vector>

namespace qs::Domains {

namespace {

constexpr bool isAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int hexValue(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// The characters a URI may hold literally (RFC 3986 unreserved, reserved and "%").
constexpr bool isURLCharacterSlow(char c) {
    if (isAlpha(c) || isDigit(c)) {
        return true;
    }
    switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':
    case ':':
    case '/':
    case '?':
    case '#':
    case '[':
    case ']':
    case '@':
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':
    case '%':
        return true;
    default:
        return false;
    }
}

// Built at compile time: a function-local table would be guarded on every character.
constexpr std::array<bool, 256> kURLCharacters = [] {
    std::array<bool, 256> t{};
    for (int i = 0; i < 256; ++i) {
        t[size_t(i)] = isURLCharacterSlow(char(i));
    }
    return t;
}();

bool isURLCharacter(char c) {
    return kURLCharacters[static_cast<unsigned char>(c)];
}

constexpr std::array<bool, 256> marks(std::string_view bytes) {
    std::array<bool, 256> t{};
    for (char c : bytes) {
        t[static_cast<unsigned char>(c)] = true;
    }
    return t;
}

// Bytes that end an authority, or (for "@") end the user information in it.
constexpr std::array<bool, 256> kAuthorityMarks = marks("/?#@");

// Bytes that end a host name (":" before a port), or make it malformed.
constexpr std::array<bool, 256> kHostMarks = marks(":[]");

// Every character a URL character, every "%" followed by two hex digits, at most one "#".
bool wellFormed(std::string_view text) {
    // Every character first, in a loop without branches (tracking URLs run to hundreds of
    // characters); then the few "%" and "#" by byte search.
    bool bad = false;
    for (char c : text) {
        bad |= !isURLCharacter(c);
    }
    if (bad) {
        return false;
    }
    for (size_t i = text.find('%'); i != std::string_view::npos; i = text.find('%', i + 1)) {
        if (i + 2 >= text.size() || hexValue(text[i + 1]) < 0 || hexValue(text[i + 2]) < 0) {
            return false;
        }
    }
    size_t fragment = text.find('#');
    return fragment == std::string_view::npos ||
           text.find('#', fragment + 1) == std::string_view::npos;
}

// Length of a leading "scheme:" (without the colon), or 0 when the text has none.
size_t schemeLength(std::string_view text) {
    if (text.empty() || !isAlpha(text[0])) {
        return 0;
    }
    for (size_t i = 1; i < text.size(); ++i) {
        char c = text[i];
        if (c == ':') {
            return i;
        }
        if (!(isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.')) {
            return 0;
        }
    }
    return 0;
}

// The text is well formed, so every "%" has two hex digits after it.
void appendPercentDecoded(std::string& out, std::string_view text) {
    if (text.find('%') == std::string_view::npos) {
        out.append(text);
        return;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            int high = hexValue(text[i + 1]);
            int low = hexValue(text[i + 2]);
            out.push_back(char(high * 16 + low));
            i += 2;
        } else {
            out.push_back(text[i]);
        }
    }
}

} // namespace

std::optional<std::string> host(std::string_view url) {
    std::string out;
    if (!host(url, out)) {
        return std::nullopt;
    }
    return out;
}

bool host(std::string_view url, std::string& out) {
    std::string_view text = TextUtil::trimWhitespace(url);
    if (text.empty() || !wellFormed(text)) {
        return false;
    }
    size_t scheme = schemeLength(text);
    std::string_view rest = scheme > 0 ? text.substr(scheme + 1) : text;
    if (rest.substr(0, 2) != "//") {
        return false;
    }
    rest.remove_prefix(2);
    // The authority runs to the first "/", "?" or "#"; user information ends at its last "@".
    size_t start = 0;
    size_t end = 0;
    for (; end < rest.size(); ++end) {
        char c = rest[end];
        if (kAuthorityMarks[static_cast<unsigned char>(c)]) {
            if (c != '@') {
                break;
            }
            start = end + 1;
        }
    }
    std::string_view authority = rest.substr(start, end - start);
    std::string_view hostPart;
    std::string_view port;
    if (!authority.empty() && authority[0] == '[') {
        size_t close = authority.find(']');
        if (close == std::string_view::npos) {
            return false;
        }
        hostPart = authority.substr(1, close - 1);
        std::string_view after = authority.substr(close + 1);
        if (!after.empty()) {
            if (after[0] != ':') {
                return false;
            }
            port = after.substr(1);
        }
    } else {
        // The name runs to a ":" before the port; a bracket in it makes the URL malformed.
        size_t stop = 0;
        while (stop < authority.size() &&
               !kHostMarks[static_cast<unsigned char>(authority[stop])]) {
            ++stop;
        }
        if (stop < authority.size()) {
            if (authority[stop] != ':') {
                return false;
            }
            port = authority.substr(stop + 1);
        }
        hostPart = authority.substr(0, stop);
    }
    for (char c : port) {
        if (!isDigit(c)) {
            return false;
        }
    }
    if (hostPart.empty()) {
        return false;
    }
    out.clear();
    appendPercentDecoded(out, hostPart);
    TextUtil::lowerASCIIInPlace(out);
    return true;
}

bool isTwoLevelSuffix(std::string_view suffix) {
    // Kept short on purpose: the common commercial and public second levels of the countries
    // whose mail is most often seen, not a public-suffix list.
    static constexpr std::array<std::string_view, 18> suffixes = {
        "co.uk", "org.uk", "ac.uk",  "gov.uk", "com.au", "net.au", "org.au", "co.nz",  "co.jp",
        "co.in", "co.kr",  "com.br", "com.cn", "com.mx", "co.za",  "com.sg", "com.tr", "com.hk"};
    for (std::string_view s : suffixes) {
        if (s == suffix) {
            return true;
        }
    }
    return false;
}

std::string registrable(std::string_view name) {
    // Host names arrive in lower case almost always; lowering a copy only when needed keeps
    // this free of allocations beyond the result.
    std::string lowered;
    std::string_view trimmed = name;
    if (!TextUtil::isASCII(name) ||
        std::any_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; })) {
        lowered = TextUtil::lower(name);
        trimmed = lowered;
    }
    auto isTrimmed = [](char c) {
        return c == '.' || c == ' ' || c == '\t';
    };
    while (!trimmed.empty() && isTrimmed(trimmed.front())) {
        trimmed.remove_prefix(1);
    }
    while (!trimmed.empty() && isTrimmed(trimmed.back())) {
        trimmed.remove_suffix(1);
    }
    // Only the last three non-empty labels matter; walk them from the end.
    std::array<std::string_view, 3> last{};
    size_t count = 0;
    size_t end = trimmed.size();
    while (end > 0 && count < 3) {
        size_t dot = trimmed.rfind('.', end - 1);
        size_t start = dot == std::string_view::npos ? 0 : dot + 1;
        if (start < end) {
            last[count++] = trimmed.substr(start, end - start);
        }
        if (dot == std::string_view::npos) {
            break;
        }
        end = dot;
    }
    if (count < 3) {
        return std::string(trimmed);
    }
    auto join = [](std::initializer_list<std::string_view> labels) {
        // Labels that stand next to each other in the name are one slice of it.
        const char* first = labels.begin()->data();
        std::string_view lastLabel = *(labels.end() - 1);
        size_t joined = 0;
        for (std::string_view label : labels) {
            joined += label.size() + 1;
        }
        if (size_t(lastLabel.data() + lastLabel.size() - first) == joined - 1) {
            return std::string(first, joined - 1);
        }
        std::string out;
        for (std::string_view label : labels) {
            out.append(out.empty() ? "" : ".").append(label);
        }
        return out;
    };
    std::string pair = join({last[1], last[0]});
    if (isTwoLevelSuffix(pair)) {
        return join({last[2], last[1], last[0]});
    }
    return pair;
}

} // namespace qs::Domains
