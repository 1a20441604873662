#include "cleanup/CleanupError.h"
#include "cleanup/CleanupPlan.h"

#include <gtest/gtest.h>

namespace {

using namespace qs;
using Status = CleanupItem::Status;

TEST(CleanupItem, KeptReasonNamesWhyAMessageStays) {
    struct Row {
        Status status;
        std::optional<std::string> reason;
    };
    const Row rows[] = {
        {Status::pending(), std::nullopt},
        {Status::verified(), std::nullopt},
        {Status::sizeMismatch(1233, 1234), "Local copy is 1233 bytes, the server’s is 1234"},
        {Status::notBackedUp(), "Not in your vault yet — run a backup first"},
        {Status::unreadable(), "Local copy doesn’t read as a complete email"},
    };
    for (const Row& row : rows) {
        CleanupItem item{7, 1234, std::nullopt, "a.eml", row.status};
        EXPECT_EQ(item.keptReason(), row.reason) << row.status;
    }
}

TEST(CleanupError, TextsTellWhatLeftAndWhatStayed) {
    struct Row {
        CleanupError error;
        std::string text;
    };
    const Row rows[] = {
        {CleanupError::otherDeletedMessages(3),
         "This server can only remove all messages marked for deletion at once, and 3 other "
         "message(s) in the folder are already marked. Nothing was deleted."},
        {CleanupError::stopped(400, 450, "EXPUNGE failed (NO): disk full"),
         "Released 400 of 450 messages, then the server reported a problem (EXPUNGE failed (NO): "
         "disk full). The other 50 are still on the server, untouched."},
        {CleanupError::stopped(0, 450, "x"),
         "Released 0 of 450 messages, then the server reported a problem (x). The other 450 are "
         "still on the server, untouched."},
        {CleanupError::stopped(0, 450), "Stopped before anything was released."},
        {CleanupError::stopped(200, 450),
         "Stopped after releasing 200 of 450 messages. The other 250 stay on the server."},
        {CleanupError::uidValidityChanged(),
         "The folder was renumbered on the server since it was checked. Run a backup, then "
         "check again."},
        {CleanupError::nothingVerified(),
         "No message in the selection has a verified copy in your vault. Nothing was deleted."},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.error.description(), row.text);
        EXPECT_STREQ(row.error.what(), row.text.c_str());
    }
    EXPECT_NE(CleanupError::stopped(1, 2), CleanupError::stopped(1, 2, "x"));
}

TEST(CleanupPlan, DerivedValuesCountOnlyWhatTheyName) {
    CleanupPlan plan;
    plan.items = {
        {1, 100, std::nullopt, "1.eml", Status::verified()},
        {2, 200, std::nullopt, "2.eml", Status::pending()},
        {3, 300, std::nullopt, "3.eml", Status::sizeMismatch(299, 300)},
        {4, 400, std::nullopt, "4.eml", Status::verified()},
        {5, 500, std::nullopt, std::nullopt, Status::notBackedUp()},
        {6, 600, std::nullopt, "6.eml", Status::unreadable()},
        {7, 700, std::nullopt, "7.eml", Status::pending()},
    };
    EXPECT_EQ(plan.verified().size(), 2u);
    ASSERT_EQ(plan.unverified().size(), 3u);
    EXPECT_EQ(plan.unverified()[1].uid, 5u);
    EXPECT_EQ(plan.pending(), 2);
    EXPECT_EQ(plan.verifiedBytes(), 500);

    // Unsafe only without UIDPLUS and with another marked message.
    for (auto [uidplus, others, safe] :
         {std::tuple{true, 5, true}, {false, 0, true}, {false, 1, false}}) {
        plan.serverSupportsUIDPlus = uidplus;
        plan.otherDeletedOnServer = others;
        EXPECT_EQ(plan.canDeleteSafely(), safe) << uidplus << " " << others;
    }
}

} // namespace
