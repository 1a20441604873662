#include "model/AppStore.h"
#include "model/Credentials.h"
#include "model/KeychainError.h"

#include "ScopedEnvironment.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace {

// With no reachable Secret Service the store's own message travels in a typed error, and
// an account whose password can't be kept is never added.
TEST(KeychainError, AnUnreachableStoreThrowsItsMessageAndAddsNoAccount) {
    qs::test::TemporaryDirectory dir;
    qs::test::ScopedEnvironment environment;
    environment.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (dir.path() / "no-bus").string());
    environment.unset("DISPLAY");
    environment.set("QUERNSTEAD_ARCHIVE_DIR", (dir.path() / "vault").string());
    ASSERT_TRUE(qs::Credentials::usesKeychain());

    qs::MailAccount account;
    account.id = qs::UUID::random();
    account.label = "Work";
    account.username = "ann";
    account.server.host = "imap.example.org";
    try {
        qs::Credentials::save("pw", account);
        ADD_FAILURE() << "saving without a Secret Service succeeded";
    } catch (const qs::KeychainError& error) {
        EXPECT_FALSE(std::string(error.what()).empty());
    }
    // Not "no password": the backup must say that the keyring can't be reached.
    EXPECT_THROW(qs::Credentials::password(account), qs::KeychainError);

    qs::AppStore store;
    EXPECT_THROW(store.addAccount(account, "pw"), qs::KeychainError);
    EXPECT_TRUE(store.accounts().empty());
    EXPECT_FALSE(std::filesystem::exists(store.layout().accountsURL()));
}

TEST(KeychainError, WithoutAMessageTheCodeIsWorded) {
    EXPECT_STREQ(qs::KeychainError(7, "").what(), "keyring error 7");
    EXPECT_STREQ(qs::KeychainError(7, "Locked").what(), "Locked");
}

} // namespace
