// The free-up-space sheet's gates: the typed confirmation and the way on to release.

#include "ui/FreeUpFlow.h"

#include "model/AppStore.h"

#include "app/ScopedEnvironment.h"
#include "support/TemporaryDirectory.h"

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

TEST(FreeUpFlow, StartsOnTheFirstAccountButReopeningMidWalkKeepsTheWalksAccount) {
    test::TemporaryDirectory dir;
    test::ScopedEnvironment environment;
    environment.set("QUERNSTEAD_ARCHIVE_DIR", (dir.path() / "vault").string());
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "credentials.json").string());
    AppStore store;
    for (const char* label : {"Home", "Work"}) {
        MailAccount account;
        account.id = UUID::random();
        account.label = label;
        account.username = label;
        account.server.host = "127.0.0.1";
        account.knownFolders = {{"Archive", "Archive", "/", {}}};
        account.folders = {"Archive"};
        store.addAccount(account, "pw");
    }
    FreeUpFlow flow(store, nullptr);
    flow.start();
    EXPECT_EQ(flow.accountId().toStdString(), store.accounts()[0].id.string());
    EXPECT_EQ(flow.mailbox(), "Archive") << "no INBOX known: the first chosen folder";

    flow.setAccountId(QString::fromStdString(store.accounts()[1].id.string()));
    store.cleanup().setStage(CleanupStage::release);
    flow.start();
    EXPECT_EQ(flow.accountId().toStdString(), store.accounts()[1].id.string());
    store.resetCleanup();
}

} // namespace
} // namespace qs
