#include "vault/FileNames.h"

#include "support/Unicode.h"

#include <cstdlib>
#include <memory>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace qs::FileNames {

namespace {

// Subjects and folder names: long enough to recognise a message in a file manager, short
// enough that "{date} {subject} {uid} (n).eml" stays well inside the 255-byte name limit.
constexpr size_t subjectCharacters = 80;
constexpr size_t folderCharacters = 80;
constexpr size_t nameBytes = 150;

// Code points that end a line (LF, VT, FF, CR, NEL, LS, PS), the tab, and the nine characters
// that some file system or shell treats specially.
bool isUnsafe(UChar32 c) {
    switch (c) {
    case 0x0A:
    case 0x0B:
    case 0x0C:
    case 0x0D:
    case 0x85:
    case 0x2028:
    case 0x2029:
    case 0x09:
    case '/':
    case '\\':
    case ':':
    case '*':
    case '?':
    case '"':
    case '<':
    case '>':
    case '|':
        return true;
    default:
        return c < 32 || c == 127;
    }
}

bool containsUnsafe(std::string_view character) {
    int32_t i = 0;
    auto length = static_cast<int32_t>(character.size());
    const auto* s = reinterpret_cast<const uint8_t*>(character.data());
    while (i < length) {
        UChar32 c;
        U8_NEXT(s, i, length, c);
        if (c >= 0 && isUnsafe(c)) {
            return true;
        }
    }
    return false;
}

// Blanks: the Unicode space separators (Zs) and the tab.
bool isBlank(UChar32 c) {
    return c == 0x09 || u_charType(c) == U_SPACE_SEPARATOR;
}

std::string trimBlanks(std::string_view text) {
    auto s = reinterpret_cast<const uint8_t*>(text.data());
    auto length = static_cast<int32_t>(text.size());
    int32_t start = 0;
    while (start < length) {
        int32_t next = start;
        UChar32 c;
        U8_NEXT(s, next, length, c);
        if (!isBlank(c)) {
            break;
        }
        start = next;
    }
    int32_t end = length;
    while (end > start) {
        int32_t previous = end;
        UChar32 c;
        U8_PREV(s, 0, previous, c);
        if (!isBlank(c)) {
            break;
        }
        end = previous;
    }
    return std::string(text.substr(size_t(start), size_t(end - start)));
}

// Folds every run of two or more U+0020 into one.
std::string foldSpaces(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c == ' ' && !out.empty() && out.back() == ' ') {
            continue;
        }
        out.push_back(c);
    }
    return out;
}

std::string firstCharacters(std::string_view text, size_t count) {
    auto characters = Unicode::graphemes(text);
    if (characters.size() <= count) {
        return std::string(text);
    }
    std::string out;
    for (size_t i = 0; i < count; ++i) {
        out += characters[i];
    }
    return out;
}

// The two formatters of message paths: fixed locale, local time zone, made once and then only
// read (ICU formats a const formatter on a clone of its calendar, so sharing is safe).
const icu::SimpleDateFormat& formatter(const char16_t* pattern) {
    UErrorCode status = U_ZERO_ERROR;
    auto* format =
        new icu::SimpleDateFormat(icu::UnicodeString(pattern), icu::Locale("en_US_POSIX"), status);
    if (U_FAILURE(status)) {
        std::abort();
    }
    return *format;
}

const icu::SimpleDateFormat& yearFormatter() {
    static const icu::SimpleDateFormat& format = formatter(u"yyyy");
    return format;
}

const icu::SimpleDateFormat& dayFormatter() {
    static const icu::SimpleDateFormat& format = formatter(u"yyyy-MM-dd");
    return format;
}

std::string format(const icu::SimpleDateFormat& formatter, Date date) {
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch());
    icu::UnicodeString out;
    formatter.format(static_cast<UDate>(millis.count()), out);
    return Unicode::toUTF8(out);
}

} // namespace

std::string sanitize(std::string_view name, size_t max, size_t maxBytes) {
    std::string valid =
        Unicode::isValidUTF8(name) ? std::string(name) : Unicode::toUTF8(Unicode::fromUTF8(name));
    std::string replaced;
    replaced.reserve(valid.size());
    for (auto character : Unicode::graphemes(valid)) {
        if (containsUnsafe(character)) {
            replaced.push_back(' ');
        } else {
            replaced += character;
        }
    }
    std::string result = trimBlanks(foldSpaces(replaced));
    size_t dots = result.find_first_not_of('.');
    result.erase(0, dots == std::string::npos ? result.size() : dots);
    if (Unicode::graphemeCount(result) > max) {
        result = trimBlanks(firstCharacters(result, max));
    }
    return trimBlanks(truncateUTF8(result, maxBytes));
}

std::string truncateUTF8(std::string_view text, size_t bytes) {
    if (text.size() <= bytes) {
        return std::string(text);
    }
    size_t total = 0;
    for (auto character : Unicode::graphemes(text)) {
        if (total + character.size() > bytes) {
            break;
        }
        total += character.size();
    }
    return std::string(text.substr(0, total));
}

std::string messagePath(Date date, std::string_view subject, std::string_view id) {
    std::string safeSubject = sanitize(subject, subjectCharacters, nameBytes);
    if (safeSubject.empty()) {
        safeSubject = "(no subject)";
    }
    std::string path = format(yearFormatter(), date);
    path += '/';
    path += format(dayFormatter(), date);
    path += ' ';
    path += safeSubject;
    path += ' ';
    path += id;
    path += ".eml";
    return path;
}

std::string folderDirectory(const IMAPMailbox& mailbox) {
    std::string name = mailbox.displayName;
    if (mailbox.delimiter && !mailbox.delimiter->empty()) {
        const std::string& delimiter = *mailbox.delimiter;
        std::string flat;
        size_t start = 0;
        for (size_t found = name.find(delimiter); found != std::string::npos;
             found = name.find(delimiter, start)) {
            flat.append(name, start, found - start);
            flat += " - ";
            start = found + delimiter.size();
        }
        flat.append(name, start);
        name = std::move(flat);
    }
    std::string safe = sanitize(name, folderCharacters, nameBytes);
    return safe.empty() ? "Folder" : safe;
}

} // namespace qs::FileNames
