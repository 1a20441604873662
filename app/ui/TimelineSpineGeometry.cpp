#include "TimelineSpineGeometry.h"

#include <algorithm>
#include <cmath>

namespace qs {

namespace {

constexpr double margin = 14;
constexpr double yearGap = 7;
constexpr double minRow = 1.2;
constexpr double maxRow = 13;

} // namespace

TimelineSpineGeometry TimelineSpineGeometry::make(std::optional<MonthKey> newest,
                                                  std::optional<MonthKey> oldest, double height) {
    TimelineSpineGeometry g;
    if (!newest || !oldest) {
        return g;
    }
    if (*newest < *oldest) {
        std::swap(newest, oldest);
    }
    for (int ordinal = newest->ordinal(); ordinal >= oldest->ordinal(); --ordinal) {
        g.months.push_back(MonthKey::fromOrdinal(ordinal));
    }
    double spare = height - 2 * margin - yearGap * (newest->year - oldest->year);
    g.rowHeight = std::clamp(spare / static_cast<double>(g.months.size()), minRow, maxRow);

    double y = margin;
    int lastYear = newest->year;
    g.years.emplace_back(lastYear, y);
    for (const MonthKey& m : g.months) {
        if (m.year != lastYear) {
            lastYear = m.year;
            y += yearGap;
            g.years.emplace_back(lastYear, y);
        }
        g.top.emplace(m.ordinal(), y);
        y += g.rowHeight;
    }
    return g;
}

std::optional<MonthKey> TimelineSpineGeometry::month(double y) const {
    std::optional<MonthKey> best;
    double bestDistance = 0;
    for (const MonthKey& m : months) {
        auto found = top.find(m.ordinal());
        if (found == top.end()) {
            continue;
        }
        double distance = std::abs(found->second + rowHeight / 2 - y);
        // Strictly nearer only: on a tie the month met first, the newer, keeps it.
        if (!best || distance < bestDistance) {
            best = m;
            bestDistance = distance;
        }
    }
    return best;
}

double TimelineSpineGeometry::tickThickness() const {
    double t = rowHeight > 4 ? rowHeight - 1.5 : rowHeight > 2 ? rowHeight - 0.8 : rowHeight - 0.3;
    return std::max(t, 1.0);
}

double TimelineSpineGeometry::tickLength(double railWidth, int count, int maxCount) {
    if (count <= 0) {
        return 2;
    }
    double full = railWidth - labelWidth - 8;
    return std::max(full * count / std::max(maxCount, 1), 3.0);
}

TimelineSpineGeometry::TickColour TimelineSpineGeometry::tickColour(bool current, bool hovered,
                                                                    int count, int maxCount) {
    if (current) {
        return {Ink::seal, 1};
    }
    if (hovered) {
        return {Ink::ink, 1};
    }
    if (count <= 0) {
        return {Ink::ink3, 0.22};
    }
    return {Ink::ink2, 0.35 + 0.55 * count / std::max(maxCount, 1)};
}

double TimelineSpineGeometry::emptyRowSpacing(double height) {
    return std::max((height - 40 - 96) / 192, 2.0);
}

} // namespace qs
