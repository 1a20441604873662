#include "support/TemporaryDirectory.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

// A label of only unsafe characters names no folder, so its folders' paths start with "/";
// they must still resolve inside the vault, never at the file system's root.
TEST(ArchiveLayoutRoot, PathsFromAnEmptyAccountFolderStayInsideTheVault) {
    qs::test::TemporaryDirectory dir;
    qs::ArchiveLayout layout{dir.path()};
    EXPECT_EQ(layout.url("/INBOX/2024/a 1.eml"), dir.path() / "INBOX/2024/a 1.eml");
    EXPECT_EQ(layout.url("//INBOX/x.eml"), dir.path() / "INBOX/x.eml");
    auto filed =
        layout.write("Subject: x\r\n\r\nbody", "/INBOX/2024/a 1.eml", qs::dateFromUnix(1700000000));
    EXPECT_TRUE(fs::exists(dir.path() / "INBOX/2024/a 1.eml")) << filed;
}

} // namespace
