#include "mime/RFC5322Fields.h"

#include "mime/TextTrim.h"

#include <algorithm>
#include <array>
#include <vector>

namespace qs::RFC5322Fields {

namespace {

// The text with its comments, nested or not, turned into blanks; a backslash quotes the next
// character inside a comment. Comments may stand anywhere in a date.
std::string withoutComments(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    int depth = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (depth > 0 && c == '\\') {
            ++i;
        } else if (c == '(') {
            ++depth;
        } else if (c == ')' && depth > 0) {
            if (--depth == 0) {
                out.push_back(' ');
            }
        } else if (depth == 0) {
            out.push_back(c);
        }
    }
    return out;
}

// The words of a date: runs between blanks and commas, with blanks around colons dropped so
// that "09 : 55 : 06" is one word.
std::vector<std::string> dateWords(std::string_view text) {
    std::string joined;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        bool blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
        if (blank) {
            size_t next = text.find_first_not_of(" \t\r\n", i);
            bool beforeColon = next != std::string_view::npos && text[next] == ':';
            bool afterColon = !joined.empty() && joined.back() == ':';
            if (!beforeColon && !afterColon) {
                joined.push_back(' ');
            }
            continue;
        }
        joined.push_back(c == ',' ? ' ' : c);
    }
    std::vector<std::string> words;
    size_t at = 0;
    while ((at = joined.find_first_not_of(' ', at)) != std::string::npos) {
        size_t end = joined.find(' ', at);
        end = end == std::string::npos ? joined.size() : end;
        words.push_back(joined.substr(at, end - at));
        at = end;
    }
    return words;
}

std::optional<int> number(std::string_view text, size_t minDigits, size_t maxDigits) {
    if (text.size() < minDigits || text.size() > maxDigits) {
        return std::nullopt;
    }
    int value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        value = value * 10 + (c - '0');
    }
    return value;
}

// Index of the month (1-12) whose English name starts with the word's first three letters.
std::optional<int> month(std::string_view word) {
    static constexpr std::array<std::string_view, 12> names{
        "jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"};
    if (word.size() < 3) {
        return std::nullopt;
    }
    std::string start = TextTrim::asciiLower(word.substr(0, 3));
    for (size_t i = 0; i < names.size(); ++i) {
        if (start == names[i]) {
            return int(i) + 1;
        }
    }
    return std::nullopt;
}

bool isDayName(std::string_view word) {
    static constexpr std::array<std::string_view, 7> names{"mon", "tue", "wed", "thu",
                                                           "fri", "sat", "sun"};
    if (word.size() < 3) {
        return false;
    }
    std::string start = TextTrim::asciiLower(word.substr(0, 3));
    return std::find(names.begin(), names.end(), start) != names.end();
}

bool isLetters(std::string_view word) {
    return !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    });
}

// A zone's offset east of GMT in minutes. Of the named zones, those RFC 5322 lists read as
// their offsets; the military letters, whose signs RFC 822 got backwards, and any other name
// read as GMT, which is what RFC 5322 asks for an unknown zone.
std::optional<int> zoneMinutes(std::string_view word) {
    if ((word[0] == '+' || word[0] == '-') && word.size() == 5) {
        auto digits = number(word.substr(1), 4, 4);
        if (!digits || *digits % 100 > 59) {
            return std::nullopt;
        }
        int minutes = *digits / 100 * 60 + *digits % 100;
        return word[0] == '-' ? -minutes : minutes;
    }
    if (!isLetters(word)) {
        return std::nullopt;
    }
    static constexpr std::array<std::pair<std::string_view, int>, 8> american{{
        {"est", -5},
        {"edt", -4},
        {"cst", -6},
        {"cdt", -5},
        {"mst", -7},
        {"mdt", -6},
        {"pst", -8},
        {"pdt", -7},
    }};
    std::string name = TextTrim::asciiLower(word);
    for (const auto& [zone, hours] : american) {
        if (name == zone) {
            return hours * 60;
        }
    }
    return 0;
}

int64_t daysFromCivil(int64_t year, int month, int day) {
    year -= month <= 2;
    int64_t era = (year >= 0 ? year : year - 399) / 400;
    int64_t yoe = year - era * 400;
    int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

int daysInMonth(int year, int month) {
    static constexpr std::array<int, 12> days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : days[size_t(month - 1)];
}

} // namespace

std::optional<int64_t> seconds(std::string_view raw) {
    auto words = dateWords(withoutComments(raw));
    size_t at = 0;
    if (at < words.size() && isDayName(words[at]) && isLetters(words[at])) {
        ++at;
    }
    if (words.size() - at < 4 || words.size() - at > 5) {
        return std::nullopt;
    }
    auto day = number(words[at], 1, 2);
    std::optional<int> monthNumber;
    if (isLetters(words[at + 1])) {
        monthNumber = month(words[at + 1]);
    }
    auto year = number(words[at + 2], 2, 4);
    if (!day || !monthNumber || !year) {
        return std::nullopt;
    }
    // Two-digit years are 1950-2049, three-digit ones count from 1900 (RFC 5322, 4.3).
    if (words[at + 2].size() == 2) {
        *year += *year < 50 ? 2000 : 1900;
    } else if (words[at + 2].size() == 3) {
        *year += 1900;
    }
    if (*day < 1 || *day > daysInMonth(*year, *monthNumber)) {
        return std::nullopt;
    }
    std::string_view time = words[at + 3];
    size_t colon = time.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    size_t second = time.find(':', colon + 1);
    auto hours = number(time.substr(0, colon), 1, 2);
    auto minutes = number(time.substr(colon + 1, second - colon - 1), 2, 2);
    std::optional<int> seconds = 0;
    if (second != std::string_view::npos) {
        seconds = number(time.substr(second + 1), 2, 2);
    }
    if (!hours || !minutes || !seconds || *hours > 23 || *minutes > 59 || *seconds > 60) {
        return std::nullopt;
    }
    std::optional<int> zone = 0; // no zone: GMT
    if (words.size() - at == 5) {
        zone = zoneMinutes(words[at + 4]);
        if (!zone) {
            return std::nullopt;
        }
    }
    // A leap second is read as the last second of its minute.
    int64_t clock = *hours * 3600 + *minutes * 60 + std::min(*seconds, 59);
    return daysFromCivil(*year, *monthNumber, *day) * 86400 + clock - int64_t(*zone) * 60;
}

} // namespace qs::RFC5322Fields
