#include "vault/ArchiveLayout.h"

#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/TemporaryDirectory.h"
#include "vault/VaultBusyError.h"
#include "vault/VaultLock.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

void put(const fs::path& path, std::string_view bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

size_t countFiles(const fs::path& folder) {
    return qs::test::snapshotFiles(folder).size();
}

qs::MailAccount account() {
    qs::MailAccount account;
    account.id = *qs::UUID::parse("0a1b2c3d-4e5f-4a6b-8c7d-8e9fa0b1c2d3");
    account.label = "Home";
    return account;
}

TEST(ArchiveLayout, PathsLiveBelowTheRoot) {
    qs::ArchiveLayout layout{"/vault"};
    EXPECT_EQ(layout.metaDirectory(), fs::path("/vault/.quernstead"));
    EXPECT_EQ(layout.accountsURL(), fs::path("/vault/.quernstead/accounts.json"));
    EXPECT_EQ(layout.filtersURL(), fs::path("/vault/.quernstead/filters.json"));
    EXPECT_EQ(layout.indexURL(), fs::path("/vault/.quernstead/index.json"));
    EXPECT_EQ(layout.syncURL(account()),
              fs::path("/vault/.quernstead/sync-0A1B2C3D-4E5F-4A6B-8C7D-8E9FA0B1C2D3.json"));
    EXPECT_EQ(layout.url("Home/INBOX/2024/a 1.eml"), fs::path("/vault/Home/INBOX/2024/a 1.eml"));
}

TEST(ArchiveLayout, HostileRelativePathsStayBelowTheRoot) {
    qs::ArchiveLayout layout{"/vault"};
    const std::pair<const char*, const char*> cases[] = {
        {"../escaped/a.eml", "/vault/escaped/a.eml"},
        {"/etc/passwd", "/vault/etc/passwd"},
        {"//INBOX/x.eml", "/vault/INBOX/x.eml"}, // an account folder with an empty name
        {"A/../../../x", "/vault/A/x"},
        {"./A//B/./..", "/vault/A/B"},
        {"..", "/vault"},
        {"", "/vault"},
        {"A/..hidden/x..y", "/vault/A/..hidden/x..y"},
    };
    for (const auto& [relative, expected] : cases) {
        EXPECT_EQ(layout.url(relative), fs::path(expected)) << relative;
    }
}

TEST(ArchiveLayoutWrite, ALinkOutOfTheVaultIsRefused) {
    qs::test::TemporaryDirectory directory;
    qs::ArchiveLayout layout{directory.path() / "vault"};
    fs::create_directories(directory.path() / "outside");
    fs::create_directories(layout.root / "A");
    fs::create_directory_symlink(directory.path() / "outside", layout.root / "A/F");
    fs::create_directory_symlink(layout.root / "A", layout.root / "Inside");
    EXPECT_FALSE(layout.contains(layout.url("A/F/2024")));
    EXPECT_TRUE(layout.contains(layout.url("Inside/2024")));
    try {
        layout.write("x", "A/F/2024/m 1.eml", qs::Date{});
        ADD_FAILURE() << "the write should have been refused";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::permission_denied);
    }
    EXPECT_TRUE(fs::is_empty(directory.path() / "outside"));
    // A link at the message's own name is never taken for the message.
    fs::create_directories(layout.root / "B/2024");
    std::ofstream(directory.path() / "outside/m.eml") << "x";
    fs::create_symlink(directory.path() / "outside/m.eml", layout.root / "B/2024/m 1.eml");
    EXPECT_EQ(layout.write("x", "B/2024/m 1.eml", qs::Date{}), "B/2024/m 1 (2).eml");
}

TEST(ArchiveLayout, SyncStateRoundTripsThroughTheFileAndDamageLoadsAsEmpty) {
    qs::test::TemporaryDirectory dir;
    qs::ArchiveLayout layout{dir.path() / "new vault"};
    EXPECT_EQ(layout.loadSync(account()), qs::AccountSyncState{});
    qs::AccountSyncState state;
    state.folders["INBOX"] = {"INBOX", "Home/INBOX", 9, 3, {{"3", "Home/INBOX/a 3.eml"}}, {}, {}};
    layout.saveSync(state, account());
    state.folders["INBOX"].highestUID = 4;
    layout.saveSync(state, account());
    EXPECT_EQ(layout.loadSync(account()), state);
    EXPECT_EQ(countFiles(layout.metaDirectory()), 1u);

    auto valid = state.encode();
    for (const auto& text : {std::string(), valid.substr(0, valid.size() / 2), std::string("[]")}) {
        put(layout.syncURL(account()), text);
        EXPECT_EQ(layout.loadSync(account()), qs::AccountSyncState{}) << text;
    }
    fs::remove(layout.syncURL(account()));
    fs::create_directory(layout.syncURL(account()));
    EXPECT_EQ(layout.loadSync(account()), qs::AccountSyncState{}) << "a folder in its place";
}

TEST(ArchiveLayoutWrite, NeverOverwritesAndNeverDuplicates) {
    qs::test::TemporaryDirectory dir;
    qs::ArchiveLayout layout{dir.path()};
    const std::string relative = "Home/INBOX/2024/2024-01-01 Hi 5.eml";
    const std::string message = "From: a@b\r\nSubject: Hi\r\n\r\nbody\r\n";
    auto sameLength = message;
    sameLength.back() ^= 1;
    auto thirdLength = message;
    thirdLength[0] ^= 1;
    auto date = qs::dateFromUnix(1'704'067'200);

    EXPECT_EQ(layout.write(message, relative, date), relative);
    EXPECT_EQ(layout.write(message, relative, date), relative);
    EXPECT_EQ(countFiles(dir.path()), 1u);

    const std::string second = "Home/INBOX/2024/2024-01-01 Hi 5 (2).eml";
    const std::string third = "Home/INBOX/2024/2024-01-01 Hi 5 (3).eml";
    EXPECT_EQ(layout.write(sameLength, relative, date), second);
    EXPECT_EQ(layout.write(thirdLength, relative, date), third);
    EXPECT_EQ(layout.write(sameLength, relative, date), second);
    EXPECT_EQ(layout.write("short", relative, date, qs::ArchiveLayout::Durability::deferred),
              "Home/INBOX/2024/2024-01-01 Hi 5 (4).eml");
    EXPECT_EQ(countFiles(dir.path()), 4u);

    EXPECT_EQ(qs::FileIO::read(layout.url(second)), sameLength);
    EXPECT_EQ(qs::FileIO::read(layout.url(third)), thirdLength);

    // Neither a folder nor a dangling link at the name is overwritten; the file takes the date.
    fs::create_directories(layout.url("A/2024/m 1.eml"));
    fs::create_symlink("/nonexistent", layout.url("A/2024/m 1 (2).eml"));
    auto written = layout.write("x", "A/2024/m 1.eml", date + std::chrono::milliseconds(250));
    EXPECT_EQ(written, "A/2024/m 1 (3).eml");
    struct stat info {};
    ASSERT_EQ(::stat(layout.url(written).c_str(), &info), 0);
    EXPECT_EQ(info.st_mtim.tv_sec, 1'704'067'200);
    EXPECT_EQ(info.st_mtim.tv_nsec, 250'000'000);
}

// A root below a regular file is unwritable even to root. A save that fails (a rename over a
// non-empty folder) keeps the old file and leaves no temporary.
TEST(ArchiveLayoutFailure, FailuresThrowTheSystemErrorAndKeepWhatWasThere) {
    qs::test::TemporaryDirectory dir;
    put(dir.path() / "plain file", "not a folder");
    qs::ArchiveLayout blocked{dir.path() / "plain file" / "vault"};
    EXPECT_THROW(blocked.ensure(), std::system_error);
    EXPECT_THROW(blocked.saveSync({}, account()), std::system_error);
    EXPECT_THROW(blocked.write("x", "A/B/2024/m 1.eml", qs::Date{}), std::system_error);
    EXPECT_EQ(blocked.loadSync(account()), qs::AccountSyncState{});

    qs::ArchiveLayout layout{dir.path() / "vault"};
    qs::AccountSyncState old;
    old.folders["INBOX"].mailbox = "INBOX";
    layout.saveSync(old, account());
    auto other = account();
    other.id = qs::UUID::random();
    fs::create_directories(layout.syncURL(other) / "inside");
    EXPECT_THROW(layout.saveSync(old, other), std::system_error);
    EXPECT_EQ(layout.loadSync(account()), old);
    EXPECT_EQ(countFiles(layout.metaDirectory()), 1u);
}

// A disk full mid-message, by a file size limit in a child (which re-runs this test from the
// top, so it removes its own folder): the write throws and leaves no file.
TEST(ArchiveLayoutFailure, AWriteThatFailsPartWayLeavesNothing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    qs::test::TemporaryDirectory dir;
    EXPECT_EXIT(
        {
            std::signal(SIGXFSZ, SIG_IGN);
            rlimit limit{};
            limit.rlim_cur = limit.rlim_max = 4096;
            ::setrlimit(RLIMIT_FSIZE, &limit);
            bool clean = false;
            try {
                qs::ArchiveLayout{dir.path()}.write(std::string(100'000, 'x'), "A/m 1.eml", {});
            } catch (const std::system_error&) {
                clean = countFiles(dir.path()) == 0;
            }
            fs::remove_all(dir.path());
            std::exit(clean ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

std::optional<std::string> holderSeenBy(const qs::ArchiveLayout& layout) {
    try {
        qs::VaultLock lock(layout, "import");
        return std::nullopt;
    } catch (const qs::VaultBusyError& busy) {
        return busy.holder();
    }
}

TEST(VaultLock, SecondWriterIsToldWhoHoldsItUntilTheHolderIsGone) {
    qs::test::TemporaryDirectory directory;
    qs::ArchiveLayout layout{directory.path() / "vault"};
    {
        qs::VaultLock held(layout, "backup");
        EXPECT_EQ(holderSeenBy(layout), qs::VaultLock::describeHolder("backup"));
    }
    EXPECT_EQ(holderSeenBy(layout), std::nullopt);

    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        qs::VaultLock held(layout, "reindex");
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
