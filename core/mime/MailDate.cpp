#include "mime/MailDate.h"

#include "mime/RFC5322Fields.h"
#include "mime/TextTrim.h"
#include "support/Unicode.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

namespace qs::MailDate {

namespace {

// The forms mail actually carries, most common first; the first that reads the whole text wins.
constexpr std::array<std::u16string_view, 7> patterns{
    u"EEE, d MMM yyyy HH:mm:ss Z", u"d MMM yyyy HH:mm:ss Z",    u"EEE, d MMM yyyy HH:mm Z",
    u"d MMM yyyy HH:mm Z",         u"EEE, d MMM yy HH:mm:ss Z", u"EEE, d MMM yyyy HH:mm:ss zzz",
    u"d MMM yyyy HH:mm:ss zzz",
};

// ICU reads "24" under "yyyy" as the year 24, and "124" as 124. Mail from before the year 1000
// doesn't exist, so such a reading is refused and the two- and three-digit forms get their turn.
constexpr UDate yearOneThousand = -30610224000000.0; // 1000-01-01T00:00:00Z in milliseconds

using Formatters = std::array<std::unique_ptr<icu::SimpleDateFormat>, patterns.size()>;

std::unique_ptr<icu::SimpleDateFormat> makeFormatter(std::u16string_view pattern,
                                                     const icu::TimeZone& zone) {
    UErrorCode status = U_ZERO_ERROR;
    auto formatter = std::make_unique<icu::SimpleDateFormat>(
        icu::UnicodeString(pattern.data(), int32_t(pattern.size())), icu::Locale("en_US_POSIX"),
        status);
    if (U_FAILURE(status)) {
        std::abort(); // a constant pattern that doesn't build is a programming error
    }
    formatter->setTimeZone(zone);
    formatter->setLenient(false);
    return formatter;
}

// The formatters are built once. ICU formatters may not parse on two threads at once, so
// each thread parses with its own clones of the shared ones.
const Formatters& prototypes() {
    static const Formatters shared = [] {
        std::unique_ptr<icu::TimeZone> gmt(icu::TimeZone::createTimeZone(u"GMT"));
        Formatters made;
        for (size_t i = 0; i < patterns.size(); ++i) {
            made[i] = makeFormatter(patterns[i], *gmt);
        }
        return made;
    }();
    return shared;
}

Formatters& threadFormatters() {
    thread_local Formatters clones = [] {
        Formatters made;
        const auto& shared = prototypes();
        for (size_t i = 0; i < shared.size(); ++i) {
            made[i].reset(shared[i]->clone());
            if (!made[i]) {
                std::abort();
            }
        }
        return made;
    }();
    return clones;
}

std::string normalised(std::string_view raw) {
    std::string_view text = TextTrim::whitespaceAndNewlines(raw);
    if (auto paren = text.find('('); paren != std::string_view::npos) {
        text = TextTrim::whitespace(text.substr(0, paren));
    }
    // Doubled spaces (from folding or padded day numbers) become one, in a single pass.
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        out.push_back(text[i]);
        if (text[i] == ' ' && i + 1 < text.size() && text[i + 1] == ' ') {
            ++i;
        }
    }
    return out;
}

// Milliseconds since 1970 as a Date, or nothing beyond what the clock holds (some 292 years
// either side of 1970 in nanoseconds), which is nonsense in mail.
std::optional<Date> clockDate(double milliseconds) {
    constexpr auto limit =
        std::chrono::duration_cast<std::chrono::milliseconds>(Date::duration::max());
    if (!(std::abs(milliseconds) < double(limit.count()))) {
        return std::nullopt;
    }
    auto millis = std::chrono::milliseconds(static_cast<int64_t>(milliseconds));
    return Date(std::chrono::duration_cast<Date::duration>(millis));
}

} // namespace

std::optional<Date> parse(std::string_view raw) {
    icu::UnicodeString text = Unicode::fromUTF8(normalised(raw));
    auto& formatters = threadFormatters();
    for (size_t i = 0; i < formatters.size(); ++i) {
        icu::ParsePosition position(0);
        UDate when = formatters[i]->parse(text, position);
        if (position.getErrorIndex() >= 0 || position.getIndex() != text.length()) {
            continue;
        }
        if (when < yearOneThousand) {
            continue;
        }
        if (auto date = clockDate(when)) {
            return date;
        }
    }
    // What the formats refuse may still be one of the older or looser forms real mail has.
    if (auto seconds = RFC5322Fields::seconds(raw)) {
        return clockDate(double(*seconds) * 1000.0);
    }
    return std::nullopt;
}

std::string rfc5322(Date date) {
    UErrorCode status = U_ZERO_ERROR;
    icu::SimpleDateFormat formatter(icu::UnicodeString(u"EEE, d MMM yyyy HH:mm:ss Z"),
                                    icu::Locale("en_US_POSIX"), status);
    if (U_FAILURE(status)) {
        std::abort();
    }
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch());
    icu::UnicodeString out;
    formatter.format(UDate(millis.count()), out);
    return Unicode::toUTF8(out);
}

} // namespace qs::MailDate
