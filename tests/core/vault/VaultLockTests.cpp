#include "vault/VaultLock.h"

#include "support/TemporaryDirectory.h"
#include "vault/VaultBusyError.h"

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace qs;

std::optional<std::string> holderSeenBy(const ArchiveLayout& layout) {
    try {
        VaultLock lock(layout, "import");
        return std::nullopt;
    } catch (const VaultBusyError& busy) {
        return busy.holder();
    }
}

TEST(VaultLock, SecondWriterIsToldWhoHoldsItUntilTheHolderIsGone) {
    test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
    {
        VaultLock held(layout, "backup");
        EXPECT_EQ(holderSeenBy(layout), VaultLock::describeHolder("backup"));
    }
    EXPECT_EQ(holderSeenBy(layout), std::nullopt);

    // Another process takes it and is killed while holding it.
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        VaultLock held(layout, "reindex");
        (void)!::write(ready[1], "x", 1);
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    auto holder = holderSeenBy(layout);
    ASSERT_TRUE(holder.has_value());
    EXPECT_NE(holder->find("process " + std::to_string(child) + ", reindex"), std::string::npos)
        << *holder;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);
    EXPECT_EQ(holderSeenBy(layout), std::nullopt);
}

} // namespace
