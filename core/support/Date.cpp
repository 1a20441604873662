#include "support/Date.h"

#include <cctype>
#include <cstdio>

namespace qs::ISODate {

namespace {

bool digits(std::string_view text, size_t at, size_t count, int& value) {
    if (at + count > text.size()) {
        return false;
    }
    value = 0;
    for (size_t i = at; i < at + count; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
            return false;
        }
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

} // namespace

std::string format(Date date) {
    using namespace std::chrono;
    auto seconds = floor<std::chrono::seconds>(date);
    auto days = floor<std::chrono::days>(seconds);
    year_month_day ymd{days};
    hh_mm_ss time{seconds - days};
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02dZ", int(ymd.year()),
                  unsigned(ymd.month()), unsigned(ymd.day()), int(time.hours().count()),
                  int(time.minutes().count()), int(time.seconds().count()));
    return buffer;
}

std::optional<Date> parse(std::string_view text) {
    using namespace std::chrono;
    int y, mo, d, h, mi, s;
    if (!digits(text, 0, 4, y) || text.size() < 19 || text[4] != '-' || !digits(text, 5, 2, mo) ||
        text[7] != '-' || !digits(text, 8, 2, d) || (text[10] != 'T' && text[10] != 't') ||
        !digits(text, 11, 2, h) || text[13] != ':' || !digits(text, 14, 2, mi) || text[16] != ':' ||
        !digits(text, 17, 2, s)) {
        return std::nullopt;
    }
    size_t at = 19;
    if (at < text.size() && text[at] == '.') {
        ++at;
        while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]))) {
            ++at;
        }
    }
    int offsetSeconds = 0;
    if (at < text.size() && (text[at] == 'Z' || text[at] == 'z')) {
        ++at;
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        int oh, om;
        bool colon = at + 3 < text.size() && text[at + 3] == ':';
        if (!digits(text, at + 1, 2, oh) || !digits(text, at + (colon ? 4 : 3), 2, om)) {
            return std::nullopt;
        }
        offsetSeconds = (oh * 3600 + om * 60) * (text[at] == '-' ? -1 : 1);
        at += colon ? 6 : 5;
    } else {
        return std::nullopt;
    }
    if (at != text.size()) {
        return std::nullopt;
    }
    year_month_day ymd{year{y}, month{unsigned(mo)}, day{unsigned(d)}};
    // A Date counts nanoseconds in 64 bits: years beyond 1678 to 2261 can't be held.
    if (!ymd.ok() || y < 1678 || y > 2261 || h > 23 || mi > 59 || s > 60) {
        return std::nullopt;
    }
    auto when = sys_days{ymd} + hours{h} + minutes{mi} + seconds{s} - seconds{offsetSeconds};
    return Date(when);
}

} // namespace qs::ISODate
