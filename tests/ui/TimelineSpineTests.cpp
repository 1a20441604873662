#include "ui/TimelineSpine.h"

#include "app/StoreTest.h"
#include "model/AppStore.h"

#include <gtest/gtest.h>

namespace qs::test {
namespace {

// Mail in May and March 2024 (April empty) and December 2023.
class TimelineSpineTest : public BrowsingTest {
protected:
    void SetUp() override {
        BrowsingTest::SetUp();
        int n = 0;
        for (auto [year, month] : {std::pair{2024, 5}, {2024, 3}, {2024, 3}, {2023, 12}}) {
            std::string name = std::to_string(++n);
            put(vault() / "Acct" / "INBOX" / (name + ".eml"),
                message("Note " + name, midMonth(year, month)));
        }
        store = std::make_unique<AppStore>();
        ASSERT_TRUE(scan(*store));
        ASSERT_EQ(store->groups().size(), 3u);
        spine.setStore(store.get());
        spine.setHeight(600);
    }

    /// The centre of a month's row.
    double rowOf(MonthKey month) {
        auto g = TimelineSpineGeometry::make(MonthKey{2024, 5}, MonthKey{2023, 12}, 600);
        return g.top.at(month.ordinal()) + g.rowHeight / 2;
    }

    // Made in SetUp, once the vault is in force.
    std::unique_ptr<AppStore> store;
    TimelineSpine spine;
};

TEST_F(TimelineSpineTest, DragScrubsOncePerMonthEvenOverAGap) {
    store->scrub({2024, 5});
    int token = store->scrubToken();
    spine.dragTo(rowOf({2024, 5})); // the current month: nothing to ask
    EXPECT_EQ(store->scrubToken(), token);
    // April is empty: the list lands on March, but further moves over April ask nothing more.
    for (int i = 0; i < 3; ++i)
        spine.dragTo(rowOf({2024, 4}) + i);
    EXPECT_EQ(store->scrubToken(), token + 1);
    EXPECT_EQ(store->timeline().currentMonth(), (MonthKey{2024, 3}));
    EXPECT_EQ(spine.hover(), (MonthKey{2024, 4}));
    EXPECT_EQ(store->timeline().probe(), (MonthKey{2024, 4}));
    spine.dragTo(5000); // past the bottom: the oldest month
    EXPECT_EQ(store->timeline().currentMonth(), (MonthKey{2023, 12}));
    EXPECT_TRUE(spine.dragging());
    spine.endDrag();
    EXPECT_FALSE(spine.dragging());
    EXPECT_EQ(spine.hover(), std::nullopt);
    EXPECT_EQ(store->scrubToken(), token + 2);
}

TEST_F(TimelineSpineTest, AdjustStepsThroughMonthsWithMailAndStopsAtTheEnds) {
    struct Step {
        int step;
        MonthKey current;
    };
    // Upwards from March must cross empty April, which a scrub would send back to March.
    const Step steps[] = {{+1, {2024, 5}},  {-1, {2024, 3}}, {-1, {2023, 12}},
                          {-1, {2023, 12}}, {+1, {2024, 3}}, {+1, {2024, 5}}};
    store->scrub({2024, 5});
    int token = store->scrubToken();
    for (const auto& s : steps) {
        int before = store->timeline().currentMonth()->ordinal();
        spine.adjust(s.step);
        EXPECT_EQ(store->timeline().currentMonth(), s.current);
        token += s.current.ordinal() != before;
        EXPECT_EQ(store->scrubToken(), token) << "an end asks nothing";
    }
    EXPECT_EQ(spine.accessibleValue().toStdString(), (MonthKey{2024, 5}.title() + ", 1 messages"));
}

} // namespace
} // namespace qs::test
