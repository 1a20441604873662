#include "support/AtomicFile.h"
#include "support/Date.h"
#include "support/FileIO.h"
#include "support/JSON.h"
#include "support/Regex.h"
#include "support/UUID.h"
#include "support/Unicode.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace qs {
namespace {

TEST(ISODate, WritesWholeSecondsInUTC) {
    auto date = dateFromUnix(1700000000) + std::chrono::milliseconds(999);
    EXPECT_EQ(ISODate::format(date), "2023-11-14T22:13:20Z");
}

TEST(ISODate, ReadsZuluOffsetsAndFractions) {
    struct Row {
        const char* text;
        std::optional<std::int64_t> seconds;
    } rows[] = {
        {"2023-11-14T22:13:20Z", 1700000000},       {"2023-11-14T22:13:20.5Z", 1700000000},
        {"2023-11-14T23:13:20+01:00", 1700000000},  {"2023-11-14T22:13:20", std::nullopt},
        {"2023-02-30T00:00:00Z", std::nullopt},     {"yesterday", std::nullopt},
        {"2023-11-14T22:13:20Zjunk", std::nullopt},
    };
    for (const auto& row : rows) {
        auto parsed = ISODate::parse(row.text);
        ASSERT_EQ(parsed.has_value(), row.seconds.has_value()) << row.text;
        if (parsed) {
            EXPECT_EQ(unixSeconds(*parsed), *row.seconds) << row.text;
        }
    }
}

TEST(UUID, RoundTripsInCanonicalUpperCase) {
    auto id = UUID::random();
    auto text = id.string();
    EXPECT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14], '4');
    EXPECT_EQ(UUID::parse(text), id);
    auto lower = UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(UUID::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"), lower);
    EXPECT_FALSE(UUID::parse("E621E1F8C36C495A93FC0C247A3E6E5F"));
    EXPECT_FALSE(UUID::parse("G621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
    nlohmann::json json = id;
    EXPECT_EQ(json.get<UUID>(), id);
}

TEST(Unicode, CountsUserPerceivedCharacters) {
    EXPECT_EQ(Unicode::graphemeCount("abc"), 3u);
    EXPECT_EQ(Unicode::graphemeCount("e\xCC\x81"), 1u); // e + combining acute
    EXPECT_EQ(Unicode::graphemeCount("\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD"), 1u); // thumbs up + tone
    EXPECT_EQ(Unicode::graphemeCount("\r\n"), 1u);
    EXPECT_EQ(Unicode::graphemeCount(""), 0u);
}

TEST(Unicode, FoldsCaseAndDiacritics) {
    EXPECT_EQ(Unicode::fold("Crème BRÛLÉE"), "creme brulee");
    EXPECT_EQ(Unicode::fold("Straße"), "strasse");
}

TEST(Regex, SharedPatternMatchesAndReplaces) {
    static const Regex spaces(u" {2,}");
    EXPECT_EQ(Unicode::toUTF8(spaces.replaceAll(Unicode::fromUTF8("a   b  c"), u" ")), "a b c");
    static const Regex word("^[a-z]+$", UREGEX_CASE_INSENSITIVE);
    EXPECT_TRUE(word.matchesWhole(Unicode::fromUTF8("Hello")));
    EXPECT_FALSE(word.contains(Unicode::fromUTF8("12")));
}

TEST(AtomicFile, ReplacesWholeAndLeavesNoTemporary) {
    auto dir = std::filesystem::temp_directory_path() / ("qs-atomic-" + UUID::random().string());
    std::filesystem::create_directories(dir);
    auto target = dir / "a.json";
    AtomicFile::write(target, "first");
    AtomicFile::write(target, "second");
    EXPECT_EQ(FileIO::read(target), "second");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);
    std::filesystem::remove_all(dir);
}

// Each record save killed half-way (a file size limit makes the kernel end the writer inside
// its write), then the start-up clean-up: only a live process's save under way is left.
TEST(AtomicFile, LeftoversOfKilledSavesAreRemovedAndLiveOnesKept) {
    auto dir = std::filesystem::temp_directory_path() / ("qs-atomic-" + UUID::random().string());
    std::filesystem::create_directories(dir);
    for (const char* name : {"accounts.json", "filters.json", "index.json"}) {
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            struct rlimit limit {
                10, 10
            };
            ::setrlimit(RLIMIT_FSIZE, &limit);
            AtomicFile::write(dir / name, std::string(100, 'x'));
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << name;
    }
    auto live = dir / (std::string(AtomicFile::temporaryPrefix) + std::to_string(::getpid()) +
                       "-0-accounts.json");
    std::ofstream(live) << "saving";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 4);
    AtomicFile::removeDeadLeftovers(dir);
    std::vector<std::filesystem::path> left(std::filesystem::directory_iterator(dir), {});
    EXPECT_EQ(left, std::vector<std::filesystem::path>{live});
    std::filesystem::remove_all(dir);
}

TEST(AtomicFile, FailsWithThePlatformErrorInAMissingFolder) {
    auto target = std::filesystem::temp_directory_path() / "qs-no-such-folder" / "x" / "a.json";
    try {
        AtomicFile::write(target, "x");
        FAIL() << "expected an error";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    }
    EXPECT_THROW(FileIO::read(target), std::system_error);
}

} // namespace
} // namespace qs
