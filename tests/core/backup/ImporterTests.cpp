#include "backup/FolderHealth.h"
#include "backup/ImportBatch.h"
#include "backup/Importer.h"

#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <ctime>
#include <fstream>
#include <map>

namespace {

namespace fs = std::filesystem;
using qs::ArchiveLayout;
using qs::Importer::fingerprint;
using qs::Importer::splitMbox;
using qs::Importer::store;

void write(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

class ImporterStore : public testing::Test {
protected:
    qs::test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
};

TEST_F(ImporterStore, NamesAndSkips) {
    const std::string dated = "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\n"
                              "Subject: =?utf-8?q?caf=C3=A9_/_menu?=\r\n\r\nhello\r\n";
    const std::string bareHeader = "Message-ID: <x@y>\r\n";
    const std::string text = "just some words\r\nno headers here\r\n";
    const std::string undated = "From: a@b\r\n\r\nbody\r\n";
    const std::string received = "Received: from a by b; Wed, 6 Mar 2024 09:00:00 +0000\r\n"
                                 "Received: from x by a; Wed, 6 Mar 2024 08:59:00 +0000\r\n"
                                 "Date: not a date\r\nSubject: r\r\n\r\nbody\r\n";

    auto sameSize = dated;
    sameSize.back() = ' ';
    auto paths =
        store({dated, "", text, bareHeader, dated, undated, received, sameSize}, "///", layout);
    ASSERT_EQ(paths.size(), 6u);
    // The local day of 10:00 UTC is 5 March in every zone from UTC-10 to UTC+13.
    EXPECT_EQ(paths[0],
              "Imported/Messages/2024/2024-03-05 café menu i" + fingerprint(dated) + ".eml");
    EXPECT_EQ(qs::FileIO::read(layout.url(paths[0])), dated);
    EXPECT_TRUE(paths[1].starts_with("Imported/Messages/")) << paths[1];
    EXPECT_TRUE(paths[1].ends_with(" (no subject) i" + fingerprint(bareHeader) + ".eml"))
        << paths[1];
    EXPECT_EQ(paths[2], paths[0]);
    std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    auto year = std::to_string(parts.tm_year + 1900);
    EXPECT_TRUE(paths[3].starts_with("Imported/Messages/" + year + "/" + year + "-")) << paths[3];
    // An unreadable Date gives way to the newest Received date, not to today.
    EXPECT_EQ(paths[4], "Imported/Messages/2024/2024-03-06 r i" + fingerprint(received) + ".eml");
    EXPECT_EQ(qs::FileIO::read(layout.url(paths[5])), sameSize);
    EXPECT_EQ(qs::test::snapshotFiles(layout.root).size(), 5u);
}

// A message already in the vault is known by its bytes, whatever name it would get now (here
// another collection, and moved to another day as another time zone would have named it).
TEST_F(ImporterStore, ReimportWritesNothingWhereverTheFirstCopyIs) {
    const std::string dated = "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\nSubject: s\r\n\r\nx\r\n";
    qs::ImportBatch first(layout);
    auto path = first.store({dated}, "A", {}).at(0);
    std::string moved = "Imported/A/2024/2024-03-04 s i" + fingerprint(dated) + ".eml";
    fs::rename(layout.url(path), layout.url(moved));
    first.finish();
    auto before = qs::test::snapshotFiles(layout.root);

    qs::ImportBatch second(layout);
    EXPECT_EQ(second.store({dated, dated}, "B", {}), (std::vector<std::string>{moved, moved}));
    EXPECT_EQ(second.written(), 0);
    EXPECT_EQ(qs::test::snapshotFiles(layout.root), before);
}

TEST_F(ImporterStore, EachNamedPathGivesItsOutcome) {
    using Skip = qs::ImportOutcome::Skip;
    const std::string mail = "Subject: hello\r\n\r\nbody\r\n";
    struct Row {
        const char* name;
        std::vector<std::pair<std::string, std::string>> files;
        std::string target; // below the sources, or absolute
        std::int64_t imported;
        std::int64_t skipped;
        Skip reason;
        std::string firstPathHolds;
    };
    // clang-format off
    const Row rows[] = {
        {"message file", {{"a.eml", mail}}, "a.eml", 1, 0, Skip::none, "Imported/Loose Messages/"},
        {"lines ending in CR alone", {{"mac.eml", "From: a@b\rSubject: Old Mac\r\rbody\r"}},
         "mac.eml", 1, 0, Skip::none, " Old Mac i"},
        {"not mail", {{"x.eml", "\x89PNG\r\n\x1a\n"}}, "x.eml", 0, 1, Skip::notMail, ""},
        {"missing", {}, "missing.eml", 0, 1, Skip::unreadable, ""},
        {"device, which could be read without end", {}, "/dev/zero", 0, 1, Skip::unreadable, ""},
        {"folder that isn't a Maildir", {{"f/a.eml", mail}}, "f", 0, 1, Skip::directory, ""},
        {"empty file", {{"empty.eml", ""}}, "empty.eml", 0, 1, Skip::empty, ""},
        {"mbox without a message", {{"list.mbox", "no separator here\n"}}, "list.mbox", 0, 1,
         Skip::noMessages, ""},
        {"Maildir: cur and new imported, tmp left alone",
         {{"Work/cur/1:2,S", mail}, {"Work/new/2", "Subject: two\r\n\r\nx\r\n"},
          {"Work/new/3", "not mail"}, {"Work/tmp/4", "Subject: half-delivered\r\n\r\n"}},
         "Work/", 2, 1, Skip::none, "Imported/Work/"},
    };
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(layout.root);
        qs::test::TemporaryDirectory sources;
        for (const auto& [name, bytes] : row.files) {
            write(sources.path() / name, bytes);
        }
        qs::ImportBatch batch(layout);
        auto outcome = batch.add(sources.path() / row.target);
        EXPECT_EQ(outcome.imported, row.imported);
        EXPECT_EQ(outcome.skipped, row.skipped);
        EXPECT_EQ(outcome.reason, row.reason);
        EXPECT_EQ(outcome.failed(),
                  row.reason == Skip::unreadable || row.reason == Skip::directory);
        auto files = qs::test::snapshotFiles(layout.root);
        EXPECT_EQ(static_cast<std::int64_t>(files.size()), row.imported);
        if (!files.empty()) {
            EXPECT_NE(files.begin()->first.find(row.firstPathHolds), std::string::npos)
                << files.begin()->first;
        }
        EXPECT_EQ(batch.written(), row.imported);
    }
}

TEST(MboxSplit, SplitsAsExpected) {
    struct Row {
        const char* name;
        std::string mbox;
        std::vector<std::string> messages;
    };
    // clang-format off
    const Row rows[] = {
        {"no separator", "Subject: x\n\nbody\n", {}},
        {"trailing blank lines stripped", "From a\nS: x\n\nbody\n\n\r\n\n", {"S: x\n\nbody\r\n"}},
        {"two", "From a\nS: 1\n\nb1\n\nFrom b\nS: 2\n\nb2\n", {"S: 1\n\nb1\r\n", "S: 2\n\nb2\r\n"}},
        {"From after a text line stays inside", "From a\nS: 1\n\nline\nFrom here on\n",
         {"S: 1\n\nline\nFrom here on\r\n"}},
        {"bytes before the first separator dropped", "junk\n\nFrom a\nS: 1\n", {"S: 1\r\n"}},
        {"CRLF lines", "From a\r\nS: 1\r\n\r\nb1\r\n\r\nFrom b\r\nS: 2\r\n",
         {"S: 1\r\n\r\nb1\r\n", "S: 2\r\n"}},
        {"CR-only lines split and keep their ends", "From a\rS: 1\r\r>From b1\r\rFrom b\rS: 2\r",
         {"S: 1\r\rFrom b1\r", "S: 2\r"}},
        {"one quote before From dropped", "From a\nS: 1\n\n>From me\n>>From you\n",
         {"S: 1\n\nFrom me\n>From you\r\n"}},
        {"quotes not before From kept", "From a\nS: 1\n\n>Fromage\n> From x\nx >From y\n>\n",
         {"S: 1\n\n>Fromage\n> From x\nx >From y\n>\r\n"}},
        {"blank message between separators", "From a\n\nFrom b\nS: 2\n", {"\r\n", "S: 2\r\n"}},
    };
    // clang-format on
    for (const Row& row : rows) {
        EXPECT_EQ(splitMbox(row.mbox), row.messages) << row.name;
    }
}

TEST(Fingerprint, IsTheLowHalfOfFNV1a64) {
    // Published FNV-1a 64-bit vectors: cbf29ce484222325, af63dc4c8601ec8c, 85944171f73967e8.
    EXPECT_EQ(qs::Importer::fingerprint(""), "84222325");
    EXPECT_EQ(qs::Importer::fingerprint("a"), "8601ec8c");
    EXPECT_EQ(qs::Importer::fingerprint("foobar"), "f73967e8");
}

// A set-aside file never takes the name of an earlier one; other folders' aren't listed.
TEST(FolderHealth, SortsRecordedFilesAndListsWhatWasSetAside) {
    qs::test::TemporaryDirectory dir;
    ArchiveLayout layout{dir.path()};
    qs::FolderState state;
    state.directory = "A/INBOX";
    state.files = {{"1", "A/INBOX/one.eml"},
                   {"2", "A/INBOX/gone.eml"},
                   {"3", "A/INBOX/grown.eml"},
                   {"4", "A/INBOX/unsized.eml"},
                   {"x5", "A/INBOX/one.eml"}};
    state.sizes = std::map<std::string, std::int64_t>{{"1", 3}, {"2", 3}, {"3", 3}};
    for (const auto& [path, bytes] : {std::pair{"A/INBOX/one.eml", "abc"},
                                      {"A/INBOX/grown.eml", "abcd"},
                                      {"A/INBOX/unsized.eml", "abcdef"},
                                      {"A/INBOX/2023/old.eml", "old"},
                                      {"B/INBOX/other.eml", "other"}}) {
        write(layout.url(path), bytes);
    }
    qs::FolderHealth::setAsideFile(layout, "A/INBOX/2023/old.eml");
    write(layout.url("A/INBOX/2023/old.eml"), "new");
    qs::FolderHealth::setAsideFile(layout, "A/INBOX/2023/old.eml");
    qs::FolderHealth::setAsideFile(layout, "B/INBOX/other.eml");

    auto health = qs::FolderHealth::check(layout, state);
    EXPECT_EQ(health.verified, 2);
    EXPECT_EQ(health.missing, (std::map<std::uint32_t, std::string>{{2, "A/INBOX/gone.eml"}}));
    EXPECT_EQ(health.differing, (std::map<std::uint32_t, std::string>{{3, "A/INBOX/grown.eml"}}));
    const std::string aside = ".quernstead/set-aside/A/INBOX/2023/";
    EXPECT_EQ(health.setAside,
              (std::vector<std::string>{aside + "old (2).eml", aside + "old.eml"}));
    EXPECT_EQ(qs::FileIO::read(layout.url(aside + "old.eml")), "old");
    EXPECT_FALSE(fs::exists(layout.url("A/INBOX/2023/old.eml")));
}

} // namespace
