#include "vault/AccountSyncState.h"
#include "vault/ArchiveLayout.h"
#include "vault/FileNames.h"
#include "vault/MailAccount.h"
#include "vault/VaultBusyError.h"
#include "vault/VaultLock.h"

#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/JSON.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

qs::MailAccount account() {
    qs::MailAccount account;
    account.id = *qs::UUID::parse("0a1b2c3d-4e5f-4a6b-8c7d-8e9fa0b1c2d3");
    account.label = "Home";
    return account;
}

TEST(ArchiveLayout, PathsLiveBelowTheRootWhateverTheRelativePath) {
    qs::ArchiveLayout layout{"/vault"};
    const std::pair<fs::path, const char*> rows[] = {
        {layout.accountsURL(), "/vault/.quernstead/accounts.json"},
        {layout.filtersURL(), "/vault/.quernstead/filters.json"},
        {layout.indexURL(), "/vault/.quernstead/index.json"},
        {layout.syncURL(account()),
         "/vault/.quernstead/sync-0A1B2C3D-4E5F-4A6B-8C7D-8E9FA0B1C2D3.json"},
        {layout.url("Home/INBOX/2024/a 1.eml"), "/vault/Home/INBOX/2024/a 1.eml"},
        {layout.url("../escaped/a.eml"), "/vault/escaped/a.eml"},
        {layout.url("/etc/passwd"), "/vault/etc/passwd"},
        {layout.url("//INBOX/x.eml"), "/vault/INBOX/x.eml"}, // an account folder named ""
        {layout.url("A/../../../x"), "/vault/A/x"},
        {layout.url("./A//B/./.."), "/vault/A/B"},
        {layout.url(".."), "/vault"},
        {layout.url(""), "/vault"},
        {layout.url("A/..hidden/x..y"), "/vault/A/..hidden/x..y"},
    };
    for (const auto& [path, expected] : rows) {
        EXPECT_EQ(path, fs::path(expected));
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
    EXPECT_EQ(qs::test::snapshotFiles(layout.metaDirectory()).size(), 1u);

    auto valid = state.encode();
    for (const auto& text : {std::string(), valid.substr(0, valid.size() / 2), std::string("[]")}) {
        std::ofstream(layout.syncURL(account()), std::ios::binary) << text;
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
    const std::string second = "Home/INBOX/2024/2024-01-01 Hi 5 (2).eml";
    const std::string third = "Home/INBOX/2024/2024-01-01 Hi 5 (3).eml";
    EXPECT_EQ(layout.write(sameLength, relative, date), second);
    EXPECT_EQ(layout.write(thirdLength, relative, date), third);
    EXPECT_EQ(layout.write(sameLength, relative, date), second);
    EXPECT_EQ(layout.write("short", relative, date, qs::ArchiveLayout::Durability::deferred),
              "Home/INBOX/2024/2024-01-01 Hi 5 (4).eml");
    EXPECT_EQ(qs::test::snapshotFiles(dir.path()).size(), 4u);

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
    std::ofstream(dir.path() / "plain file") << "not a folder";
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
    EXPECT_EQ(qs::test::snapshotFiles(layout.metaDirectory()).size(), 1u);
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
                clean = qs::test::snapshotFiles(dir.path()).empty();
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

TEST(FileNamesSanitize, Table) {
    auto repeat = [](std::string_view piece, size_t count) {
        std::string out;
        while (count-- > 0) {
            out += piece;
        }
        return out;
    };
    // One character of 8 bytes, and one of 18.
    const std::string emoji = "\U0001F44D\U0001F3FD";
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    struct Case {
        const char* name;
        std::string input;
        size_t max;
        size_t maxBytes;
        std::string expected;
    };
    // clang-format off
    const std::vector<Case> cases = {
        {"all nine unsafe characters", R"(a/b\c:d*e?f"g<h>i|j)", 80, 150, "a b c d e f g h i j"},
        {"runs of spaces fold", "  a    b  ", 80, 150, "a b"},
        {"every line break kind", "a\nb\vc\fd\re\u0085f\u2028g\u2029h", 80, 150, "a b c d e f g h"},
        {"tab, controls and DEL", "a\tb\x01" "c\x1f" "d\x7f" "e", 80, 150, "a b c d e"},
        {"unicode blanks trimmed, kept inside", "\u00a0\u3000x\u00a0y\u2003", 80, 150, "x\u00a0y"},
        {"dots alone become empty", "....", 80, 150, ""},
        {"dot, blank, letter ends as the letter", ". x", 80, 150, "x"},
        {"inner and trailing dots stay", "a.b.", 80, 150, "a.b."},
        {"cut by characters, then trimmed", "abc def", 4, 150, "abc"},
        {"cut by bytes, an exact fit kept", "日本語テキスト", 80, 9, "日本語"},
        {"combining sequences stay whole", repeat("e\u0301", 5), 80, 7, repeat("e\u0301", 2)},
        {"ill-formed UTF-8 becomes U+FFFD", "a\xff" "b", 80, 150, "a\ufffd" "b"},
        {"200 emoji: characters, then bytes", repeat(emoji, 200), 80, 150, repeat(emoji, 18)},
        {"a byte limit inside a character", repeat(family, 3), 80, 41, repeat(family, 2)},
    };
    // clang-format on
    for (const auto& c : cases) {
        EXPECT_EQ(qs::FileNames::sanitize(c.input, c.max, c.maxBytes), c.expected) << c.name;
    }
}

TEST(FileNamesFolderDirectory, Table) {
    struct Case {
        qs::IMAPMailbox mailbox;
        std::string expected;
    };
    // clang-format off
    const std::vector<Case> cases = {
        {{"&AMQ-rger", "Ärger", "/", {}}, "Ärger"}, // the display name, not the wire name
        {{"Work/Projects/2024", "Work/Projects/2024", "/", {}}, "Work - Projects - 2024"},
        {{"INBOX.Sub.Deep", "INBOX.Sub.Deep", ".", {}}, "INBOX - Sub - Deep"},
        {{"a/b", "a/b", std::nullopt, {}}, "a b"}, // no delimiter: a slash is only unsafe
        {{"a.b", "a.b", "", {}}, "a.b"},
        {{"///", "///", std::nullopt, {}}, "Folder"},
        {{"..", "..", "/", {}}, "Folder"},
    };
    // clang-format on
    for (const auto& c : cases) {
        EXPECT_EQ(qs::FileNames::folderDirectory(c.mailbox), c.expected) << c.mailbox;
    }
}

// Noon UTC is the same day from UTC-11 to UTC+11.
TEST(FileNamesMessagePath, JoinsYearDaySubjectAndId) {
    auto noon = qs::dateFromUnix(1'709'294'400); // 2024-03-01T12:00:00Z
    EXPECT_EQ(qs::FileNames::messagePath(noon, "Lunch: Friday?", "42"),
              "2024/2024-03-01 Lunch Friday 42.eml");
    EXPECT_EQ(qs::FileNames::messagePath(noon, "   ", "7"), "2024/2024-03-01 (no subject) 7.eml");
    EXPECT_EQ(qs::FileNames::messagePath(noon, std::string(300, 'x'), "1"),
              "2024/2024-03-01 " + std::string(80, 'x') + " 1.eml");
    auto early = qs::dateFromUnix(-2'208'945'600); // 1900-01-01T12:00:00Z
    EXPECT_EQ(qs::FileNames::messagePath(early, "Old", "1"), "1900/1900-01-01 Old 1.eml");
}

// The formatters read the zone once, so each case runs in a fresh child that sets TZ first.
TEST(FileNamesMessagePath, YearFollowsTheLocalTimeZone) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::tuple<const char*, std::int64_t, const char*> cases[] = {
        {"Asia/Tokyo", 1'704'065'400, "2024/2024-01-01 Party 9.eml"},       // 2023-12-31T23:30:00Z
        {"America/New_York", 1'704'079'800, "2023/2023-12-31 Party 9.eml"}, // 03:30Z, 1 Jan
    };
    for (const auto& [zone, unix, expected] : cases) {
        EXPECT_EXIT(
            {
                ::setenv("TZ", zone, 1);
                ::tzset();
                auto path = qs::FileNames::messagePath(qs::dateFromUnix(unix), "Party", "9");
                std::exit(path == expected ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "")
            << zone << " expects " << expected;
    }
}

const std::string validAccountsFile =
    R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","label":"Home","username":"bob",)"
    R"("server":{"host":"127.0.0.1","port":1143,"plaintextLocalDev":true},"provider":"custom",)"
    R"("folders":[],"knownFolders":[{"name":"INBOX","displayName":"INBOX","attributes":[]}]}])";

// Compact, upper-case id, whole UTC seconds, a NIL delimiter left out; optional keys optional.
TEST(MailAccountJSON, EncodesCompactlyAndRoundTrips) {
    qs::MailAccount account;
    account.id = *qs::UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    account.label = "Work ✉";
    account.username = "ann@example.org";
    account.server = {"imap.example.org", 993, false};
    account.provider = "custom";
    account.folders = {"INBOX", "Archiv/2019"};
    account.knownFolders = {{"INBOX", "INBOX", "/", {"\\HasNoChildren"}},
                            {"&AMQ-rger", "Ärger", std::nullopt, {}}};
    account.lastBackup = qs::dateFromUnix(1'700'000'000) + std::chrono::milliseconds(750);
    account.passwordCommand = "pass show \"mail/work\"";
    auto text = qs::MailAccount::encodeList({account});
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find(": "), std::string::npos);
    EXPECT_NE(text.find(R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")"), std::string::npos);
    EXPECT_NE(text.find(R"("lastBackup":"2023-11-14T22:13:20Z")"), std::string::npos);
    EXPECT_NE(text.find(R"("name":"&AMQ-rger")"), std::string::npos);
    EXPECT_EQ(text.find("null"), std::string::npos);
    auto decoded = qs::MailAccount::decodeList(text);
    account.lastBackup = qs::dateFromUnix(1'700'000'000);
    EXPECT_EQ(decoded, std::vector<qs::MailAccount>{account});
    EXPECT_EQ(account.directoryName(), "Work ✉");
    account.label = std::string(100, '/') + std::string(100, 'a');
    EXPECT_EQ(account.directoryName(), std::string(60, 'a'));
    const std::pair<std::vector<std::string>, bool> folders[] = {
        {{"\\HasNoChildren", "\\NOSELECT"}, false},
        {{"\\nonexistent"}, false},
        {{"Noselect", "\\Noselected"}, true}};
    for (const auto& [attributes, selectable] : folders) {
        EXPECT_EQ((qs::IMAPMailbox{"A", "A", "/", attributes}.isSelectable()), selectable);
    }

    auto minimal = qs::MailAccount::decodeList(validAccountsFile);
    ASSERT_TRUE(minimal && minimal->size() == 1);
    EXPECT_FALSE(minimal->front().lastBackup);
    EXPECT_FALSE(minimal->front().passwordCommand);
    EXPECT_EQ(minimal->front().server, (qs::IMAPServer{"127.0.0.1", 1143, true}));
    EXPECT_FALSE(minimal->front().knownFolders.at(0).delimiter);
}

// A second, intact account doesn't rescue a bad one.
TEST(MailAccountJSON, AnyMissingKeyOrDamagedValueRejectsTheWholeFile) {
    for (const char* key :
         {"/id", "/label", "/username", "/server", "/provider", "/folders", "/knownFolders",
          "/server/host", "/server/port", "/server/plaintextLocalDev", "/knownFolders/0/name",
          "/knownFolders/0/displayName", "/knownFolders/0/attributes"}) {
        auto file = json::parse(validAccountsFile);
        file.push_back(file[0]);
        json::json_pointer at(std::string("/0") + key);
        file[at.parent_pointer()].erase(at.back());
        EXPECT_FALSE(qs::MailAccount::decodeList(file.dump())) << "without " << key;
    }
    const std::pair<std::string, std::string> damage[] = {
        {R"("port":1143)", R"("port":70000)"},
        {R"("port":1143)", R"("port":-1)"},
        {R"("port":1143)", R"("port":"993")"},
        {R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F")", R"("id":"E621E1F8")"},
        {R"("folders":[])", R"("folders":[1])"},
        {R"("plaintextLocalDev":true)", R"("plaintextLocalDev":1)"},
        {validAccountsFile, validAccountsFile.substr(0, 60)},
        {validAccountsFile, R"({"id":"x"})"},
    };
    for (const auto& [from, to] : damage) {
        auto text = validAccountsFile;
        text.replace(text.find(from), from.size(), to);
        EXPECT_FALSE(qs::MailAccount::decodeList(text)) << to;
    }
    EXPECT_TRUE(qs::MailAccount::decodeList("[]"));
}

TEST(AccountSyncStateJSON, RoundTripsAndRejectsDamage) {
    qs::AccountSyncState state;
    auto& inbox = state.folders["INBOX"];
    inbox = {"INBOX", "Work/INBOX", 4'294'967'295u, 17, {{"3", "W/2020/a 3.eml"}}, {}, {}, false};
    inbox.lastRun = qs::dateFromUnix(1'600'000'000);
    inbox.sizes = std::map<std::string, std::int64_t>{{"3", 1200}, {"17", 5'000'000'000}};
    state.folders["Sent"] = {"Sent", "Work/Sent", 0, 0, {}, {}, {}, false};
    auto text = state.encode();
    EXPECT_NE(text.find(R"("lastRun":"2020-09-13T12:26:40Z")"), std::string::npos);
    EXPECT_EQ(qs::AccountSyncState::decode(text), state);
    auto sent = json::parse(text)["folders"]["Sent"];
    EXPECT_FALSE(sent.contains("lastRun"));
    EXPECT_FALSE(sent.contains("sizes"));

    auto valid = json::parse(text);
    for (const char* key : {"mailbox", "directory", "uidValidity", "highestUID", "files"}) {
        auto damaged = valid;
        damaged["folders"]["INBOX"].erase(key);
        EXPECT_FALSE(qs::AccountSyncState::decode(damaged.dump())) << "without " << key;
    }
    const std::vector<std::pair<std::string, json>> badValues = {
        {"uidValidity", 4'294'967'296ll}, {"highestUID", -1},       {"uidValidity", 1.5},
        {"files", json::array()},         {"lastRun", "yesterday"}, {"sizes", json{{"3", "big"}}},
    };
    for (const auto& [key, value] : badValues) {
        auto damaged = valid;
        damaged["folders"]["INBOX"][key] = value;
        EXPECT_FALSE(qs::AccountSyncState::decode(damaged.dump())) << key << " = " << value;
    }
    EXPECT_FALSE(qs::AccountSyncState::decode("{}"));
    EXPECT_TRUE(qs::AccountSyncState::decode(R"({"folders":{}})"));
}

} // namespace
