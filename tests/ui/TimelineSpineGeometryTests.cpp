#include "ui/TimelineSpineGeometry.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace qs {
namespace {

using Years = std::vector<std::pair<int, double>>;

TEST(TimelineSpineGeometry, LaysOutEveryMonthWithYearGaps) {
    struct Case {
        std::string name;
        std::optional<MonthKey> newest, oldest;
        double height;
        size_t months;
        double rowHeight;
        Years years;
        double lastTop;
    };
    // One row a case reads better than one field a line.
    // clang-format off
    const Case cases[] = {
        {"one month: a full row, one label at 14", MonthKey{2024, 3}, MonthKey{2024, 3}, 600, 1, 13,
         {{2024, 14}}, 14},
        // Two months of 2024, all of 2023 and 2022 (empty), two months of 2021.
        {"a gap of years: a row per month", MonthKey{2024, 2}, MonthKey{2021, 11}, 600, 28, 13,
         {{2024, 14}, {2023, 47}, {2022, 210}, {2021, 373}}, 386},
        // (600 - 28 - 7 × 24) ÷ 300 stays above the floor.
        {"300 months in 600", MonthKey{2024, 12}, MonthKey{2000, 1}, 600, 300, 404.0 / 300, {},
         14 + 7 * 24 + 299 * 404.0 / 300},
        {"300 months in 400: the floor", MonthKey{2024, 12}, MonthKey{2000, 1}, 400, 300, 1.2, {},
         14 + 7 * 24 + 299 * 1.2},
        {"a reversed pair: the same span", MonthKey{2024, 1}, MonthKey{2024, 2}, 10, 2, 1.2,
         {{2024, 14}}, 15.2},
        {"no newest: empty", std::nullopt, MonthKey{2024, 1}, 600, 0, 0, {}, 0},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto g = TimelineSpineGeometry::make(c.newest, c.oldest, c.height);
        ASSERT_EQ(g.months.size(), c.months);
        EXPECT_EQ(g.top.size(), c.months);
        EXPECT_DOUBLE_EQ(g.rowHeight, c.rowHeight);
        if (!c.years.empty() || c.months == 0) {
            EXPECT_EQ(g.years, c.years);
        }
        if (c.months > 0) {
            EXPECT_EQ(g.months.front(), std::max(*c.newest, *c.oldest));
            EXPECT_EQ(g.months.back(), std::min(*c.newest, *c.oldest));
            EXPECT_NEAR(g.top.at(g.months.back().ordinal()), c.lastTop, 1e-9);
        }
    }
}

} // namespace
} // namespace qs
