#include "model/Fmt.h"

#include <QDateTime>

namespace qs::Fmt {

namespace {

constexpr std::int64_t minute = 60;
constexpr std::int64_t hour = 3'600;
constexpr std::int64_t day = 86'400;
// Under a minute and a half a count of minutes would read as a jump; beyond 60 days a count
// of days is harder to place than the date itself.
constexpr std::int64_t justNow = 90;
constexpr std::int64_t daysLimit = 60 * day;

QDateTime local(Date date) {
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch());
    return QDateTime::fromMSecsSinceEpoch(millis.count(), Qt::LocalTime);
}

} // namespace

QString ago(Date date, Date now, const QLocale& locale) {
    auto seconds = std::chrono::floor<std::chrono::seconds>(now - date).count();
    if (seconds < justNow) {
        return QStringLiteral("just now");
    }
    if (seconds < hour) {
        return QStringLiteral("%1 min ago").arg(seconds / minute);
    }
    if (seconds < day) {
        return QStringLiteral("%1 h ago").arg(seconds / hour);
    }
    if (seconds < daysLimit) {
        return QStringLiteral("%1 d ago").arg(seconds / day);
    }
    return locale.toString(local(date).date(), QStringLiteral("MMM d, yyyy"));
}

QString rowDate(Date date, Date now, const QLocale& locale) {
    auto when = local(date);
    auto today = local(now).date();
    if (when.date() == today) {
        return locale.toString(when.time(), QStringLiteral("HH:mm"));
    }
    if (when.date() == today.addDays(-1)) {
        return QStringLiteral("Yesterday");
    }
    return locale.toString(when.date(), QStringLiteral("MMM dd"));
}

} // namespace qs::Fmt
