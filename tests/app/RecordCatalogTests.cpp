#include "model/RecordCatalog.h"

#include <gtest/gtest.h>

namespace {

using qs::MessageRecord;
using qs::RecordCatalog;

MessageRecord record(int64_t id, std::string path, int64_t seconds) {
    MessageRecord r;
    r.id = id;
    r.path = std::move(path);
    r.date = qs::Date(std::chrono::seconds(seconds));
    return r;
}

// A search hit maps onto the catalog's shared record by its slot when the catalog came from
// the same index, and by its path when it came from another (a scan's own index, whose slots
// differ); a hit the catalog doesn't hold maps to nothing.
TEST(RecordCatalogTest, FindsHitsBySlotOrByPath) {
    auto catalog = RecordCatalog::build(
        {record(0, "a.eml", 10), record(2, "b.eml", 30), record(5, "c.eml", 20)});
    ASSERT_EQ(catalog.records.size(), 3u);
    EXPECT_EQ(catalog.records[0]->path, "b.eml"); // newest first

    struct Case {
        int64_t id;
        std::string path;
        const char* expected; // nullptr: not found
    };
    const Case cases[] = {
        {2, "b.eml", "b.eml"},  // same slot, same path
        {0, "c.eml", "c.eml"},  // slot taken by another record: found by path
        {9, "a.eml", "a.eml"},  // slot beyond the catalog's
        {1, "a.eml", "a.eml"},  // empty slot
        {-1, "c.eml", "c.eml"}, // no slot at all
        {5, "d.eml", nullptr},  // unknown path, though its slot is held
    };
    for (const auto& c : cases) {
        const qs::RecordRef* found = catalog.find(record(c.id, c.path, 0));
        if (c.expected == nullptr) {
            EXPECT_EQ(found, nullptr) << c.path;
        } else {
            ASSERT_NE(found, nullptr) << c.path;
            EXPECT_EQ((*found)->path, c.expected);
            // The very record the list holds, not a copy of it.
            EXPECT_EQ(found->get(), catalog.byPath.at(c.expected).get());
        }
    }
    // By slot alone: what the slot holds, whatever its path, and nothing where it's empty.
    EXPECT_EQ((*catalog.atSlot(0))->path, "a.eml");
    EXPECT_EQ(catalog.atSlot(1), nullptr);
    EXPECT_EQ(catalog.atSlot(6), nullptr);
    EXPECT_EQ(catalog.atSlot(-1), nullptr);
}

} // namespace
