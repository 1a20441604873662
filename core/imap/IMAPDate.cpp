#include "imap/IMAPDate.h"

#include "support/Unicode.h"

#include <memory>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

namespace qs::IMAPDate {

namespace {

// ICU formatters are not safe for simultaneous use; one per thread, each made once. They take
// the device's time zone, which applies to a text that has none.
std::unique_ptr<icu::SimpleDateFormat> makeFormat(const char16_t* pattern) {
    UErrorCode status = U_ZERO_ERROR;
    auto format = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString(pattern),
                                                          icu::Locale("en_US_POSIX"), status);
    if (U_FAILURE(status)) {
        std::abort(); // a fixed pattern that doesn't build is a programming error
    }
    format->setLenient(false);
    return format;
}

// The zone is the device's as it is at the call, not as it was when the formatter was made.
icu::SimpleDateFormat& inDeviceZone(icu::SimpleDateFormat& format) {
    format.adoptTimeZone(icu::TimeZone::createDefault());
    return format;
}

icu::SimpleDateFormat& internalDateFormat() {
    thread_local std::unique_ptr<icu::SimpleDateFormat> format =
        makeFormat(u"d-MMM-yyyy HH:mm:ss Z");
    return inDeviceZone(*format);
}

icu::SimpleDateFormat& searchFormat() {
    thread_local std::unique_ptr<icu::SimpleDateFormat> format = makeFormat(u"d-MMM-yyyy");
    return inDeviceZone(*format);
}

} // namespace

std::optional<Date> parse(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    icu::UnicodeString input = Unicode::fromUTF8(text);
    icu::ParsePosition position(0);
    UDate millis = internalDateFormat().parse(input, position);
    if (position.getErrorIndex() >= 0 || position.getIndex() != input.length()) {
        return std::nullopt;
    }
    return Date(std::chrono::duration_cast<Date::duration>(
        std::chrono::duration<double, std::milli>(millis)));
}

std::string searchString(Date date) {
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch());
    icu::UnicodeString out;
    searchFormat().format(static_cast<UDate>(millis.count()), out);
    return Unicode::toUTF8(out);
}

} // namespace qs::IMAPDate
