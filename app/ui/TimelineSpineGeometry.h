#pragma once

#include "model/MonthKey.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace qs {

/// The month rail's layout for one view and one height, and the drawing rules that depend on
/// it. Plain values, no Qt: the rail item paints and hit-tests from this.
struct TimelineSpineGeometry {
    /// The whole rail's width, and the column left of the ticks that holds the year labels.
    static constexpr double width = 84;
    static constexpr double labelWidth = 34;

    /// Every calendar month from the newest to the oldest, months without mail included.
    std::vector<MonthKey> months;
    /// The top edge of each month's row, by month ordinal.
    std::map<int, double> top;
    double rowHeight = 0;
    /// Each year's label: the year and the y of its first row.
    std::vector<std::pair<int, double>> years;

    /// The layout of the months from `newest` down to `oldest` in `height` points: 14 points
    /// above and below, 7 more before each new year, rows of 1.2 to 13 points (rows that don't
    /// fit fall off the bottom). Either key absent gives the empty geometry. A reversed pair
    /// names the same span.
    static TimelineSpineGeometry make(std::optional<MonthKey> newest,
                                      std::optional<MonthKey> oldest, double height);

    /// The month whose row centre is nearest to `y`; on a tie the newer one. Absent only when
    /// there are no months, so a drag past either end stays on the first or last month.
    std::optional<MonthKey> month(double y) const;

    /// The height of a tick: a little under the row so neighbours stay apart, never under 1.
    double tickThickness() const;

    /// The length of a month's tick holding `count` of the busiest month's `maxCount` messages
    /// on a rail `railWidth` wide: proportional, at least 3; a month without mail gets 2.
    static double tickLength(double railWidth, int count, int maxCount);

    /// Which colour a tick takes, strongest rule first: the current month, the hovered one, a
    /// month without mail, any other (fainter the less mail it holds).
    enum class Ink { seal, ink, ink2, ink3 };
    struct TickColour {
        Ink ink;
        double opacity;
        friend bool operator==(const TickColour&, const TickColour&) = default;
    };
    static TickColour tickColour(bool current, bool hovered, int count, int maxCount);

    /// The pitch of the placeholder ticks drawn when there are no months.
    static double emptyRowSpacing(double height);
};

} // namespace qs
