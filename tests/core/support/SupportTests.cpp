#include "support/AtomicFile.h"
#include "support/Date.h"
#include "support/FileIO.h"
#include "support/JSON.h"
#include "support/Regex.h"
#include "support/TemporaryDirectory.h"
#include "support/UUID.h"
#include "support/Unicode.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qs {
namespace {

namespace fs = std::filesystem;

TEST(ISODate, WritesWholeSecondsReadsZuluOffsetsAndFractions) {
    EXPECT_EQ(ISODate::format(dateFromUnix(1700000000) + std::chrono::milliseconds(999)),
              "2023-11-14T22:13:20Z");
    const std::pair<const char*, std::optional<std::int64_t>> rows[] = {
        {"2023-11-14t22:13:20.5Z", 1700000000},     {"2023-11-14T23:13:20+01:00", 1700000000},
        {"2023-11-14T22:13:20", std::nullopt},      {"2023-02-30T00:00:00Z", std::nullopt},
        {"2023-11-14T22:13:20Zjunk", std::nullopt},
    };
    for (const auto& [text, seconds] : rows) {
        auto parsed = ISODate::parse(text);
        EXPECT_EQ(parsed ? std::optional(unixSeconds(*parsed)) : std::nullopt, seconds) << text;
    }
}

TEST(UUID, RoundTripsInCanonicalUpperCase) {
    auto id = UUID::random();
    EXPECT_EQ(id.string()[14], '4');
    EXPECT_EQ(UUID::parse(id.string()), id);
    EXPECT_EQ(nlohmann::json(id).get<UUID>(), id);
    EXPECT_EQ(UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f")->string(),
              "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_FALSE(UUID::parse("E621E1F8C36C495A93FC0C247A3E6E5F"));
    EXPECT_FALSE(UUID::parse("G621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
}

TEST(Unicode, CountsCharactersFoldsCaseAndDiacriticsAndMatches) {
    EXPECT_EQ(Unicode::graphemeCount("e\xCC\x81\r\n"), 2u); // e + combining acute, CR LF
    EXPECT_EQ(Unicode::fold("Crème BRÛLÉE"), "creme brulee");
    EXPECT_EQ(Unicode::fold("Straße"), "strasse");
    static const Regex spaces(u" {2,}");
    EXPECT_EQ(Unicode::toUTF8(spaces.replaceAll(Unicode::fromUTF8("a   b  c"), u" ")), "a b c");
    static const Regex word("^[a-z]+$", UREGEX_CASE_INSENSITIVE);
    EXPECT_TRUE(word.matchesWhole(Unicode::fromUTF8("Hello")));
    EXPECT_FALSE(word.contains(Unicode::fromUTF8("12")));
}

// Saves killed half-way by a file size limit: the clean-up leaves only a live process's save.
TEST(AtomicFile, LeftoversOfKilledSavesAreRemovedAndLiveOnesKept) {
    test::TemporaryDirectory temporary;
    const fs::path dir = temporary.path();
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
    pid_t holder = 0; // a live process with a 0 and a 9 in its id
    for (std::string id; id.find('0') == std::string::npos || id.find('9') == std::string::npos;
         id = std::to_string(holder)) {
        if (holder > 0) {
            ::kill(holder, SIGKILL);
            ::waitpid(holder, nullptr, 0);
        }
        if ((holder = ::fork()) == 0) {
            ::pause();
        }
    }
    auto live = dir / (std::string(AtomicFile::temporaryPrefix) + std::to_string(holder) +
                       "-0-accounts.json");
    std::ofstream(live) << "saving";
    AtomicFile::write(dir / "index.json", "first");
    AtomicFile::write(dir / "index.json", "second");
    EXPECT_EQ(FileIO::read(dir / "index.json"), "second");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), {}), 5);
    AtomicFile::removeDeadLeftovers(dir);
    EXPECT_EQ(std::set<fs::path>(fs::directory_iterator(dir), {}),
              (std::set<fs::path>{live, dir / "index.json"}));
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);

    auto missing = dir / "no such folder" / "a.json";
    try {
        AtomicFile::write(missing, "x");
        ADD_FAILURE() << "expected an error";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    }
    EXPECT_THROW(FileIO::read(missing), std::system_error);
}

} // namespace
} // namespace qs
