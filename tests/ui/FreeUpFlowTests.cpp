// The free-up-space sheet's gates: the typed confirmation and the way on to release.

#include "ui/FreeUpFlow.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

TEST(FreeUpFlow, OnlyTheExactPhraseConfirms) {
    const struct {
        const char* typed;
        int64_t verified;
        bool confirms;
    } rows[] = {
        {"RELEASE 12", 12, true},
        {"release 12", 12, false},
        {"RELEASE 12 ", 12, false},
        {" RELEASE 12", 12, false},
        {"RELEASE 11", 12, false},
        {"RELEASE 1234", 1'234, true},
        {"RELEASE 1,234", 1'234, false},
        {"RELEASE 1 234", 1'234, false},
        {"", 0, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FreeUpFlow::confirms(QString::fromUtf8(row.typed), row.verified), row.confirms)
            << "'" << row.typed << "' for " << row.verified;
    }
}

TEST(FreeUpFlow, ReleaseOpensOnlyWhenEveryItemIsCheckedOneIsProvenAndTheFolderIsSafe) {
    const struct {
        int64_t checked, items, verified;
        bool safe, expected;
    } rows[] = {
        {12, 12, 12, true, true},   {11, 12, 11, true, false}, // one item still unchecked
        {12, 12, 0, true, false},                              // nothing proven
        {12, 12, 12, false, false}, {0, 0, 0, true, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FreeUpFlow::canContinue(row.checked, row.items, row.verified, row.safe),
                  row.expected)
            << row.checked << "/" << row.items << " verified " << row.verified;
    }
}

TEST(FreeUpFlow, KeptSentenceAgreesWithItsCount) {
    EXPECT_EQ(FreeUpFlow::keptSentence(1),
              "1 message was kept on the server because its copy couldn’t be verified.");
    EXPECT_EQ(FreeUpFlow::keptSentence(3),
              "3 messages were kept on the server because their copies couldn’t be verified.");
}

} // namespace
} // namespace qs
