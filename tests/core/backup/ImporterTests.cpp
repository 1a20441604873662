#include "backup/ImportBatch.h"
#include "backup/Importer.h"

#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <functional>
#include <map>
#include <set>

namespace {

namespace fs = std::filesystem;
using qs::ArchiveLayout;
using qs::Importer::store;

const fs::path corpus = QS_CORPUS_DIR;

std::string localYear(std::chrono::system_clock::time_point when) {
    std::time_t t = std::chrono::system_clock::to_time_t(when);
    std::tm parts{};
    localtime_r(&t, &parts);
    return std::to_string(parts.tm_year + 1900);
}

class ImporterStore : public testing::Test {
protected:
    qs::test::TemporaryDirectory directory;
    ArchiveLayout layout{directory.path() / "vault"};
};

TEST_F(ImporterStore, CorpusMboxImportsTwiceWithTheSameCountAndNothingNew) {
    auto messages =
        qs::Importer::splitMbox(qs::FileIO::read(corpus / "mimekit/mbox/content-length.mbox.txt"));
    ASSERT_EQ(messages.size(), 19u);
    auto first = store(messages, "content-length", layout);
    EXPECT_EQ(first.size(), 19u);
    auto before = qs::test::snapshotFiles(layout.root);
    EXPECT_EQ(before.size(), std::set<std::string>(first.begin(), first.end()).size());

    auto second = store(messages, "content-length", layout);
    EXPECT_EQ(second, first);
    EXPECT_EQ(qs::test::snapshotFiles(layout.root), before);

    for (size_t i = 0; i < first.size(); ++i) {
        EXPECT_TRUE(first[i].starts_with("Imported/content-length/")) << first[i];
        EXPECT_TRUE(first[i].ends_with(" i" + qs::Importer::fingerprint(messages[i]) + ".eml"))
            << first[i];
        EXPECT_EQ(qs::FileIO::read(layout.url(first[i])), messages[i]);
    }
}

TEST_F(ImporterStore, AllCorpusMboxFilesImport) {
    size_t members = 0;
    size_t filed = 0;
    for (const auto& entry : fs::recursive_directory_iterator(corpus / "dovecot-imaptest")) {
        if (entry.path().extension() != ".mbox") {
            continue;
        }
        auto messages = qs::Importer::splitMbox(qs::FileIO::read(entry.path()));
        members += messages.size();
        filed += store(messages, entry.path().stem().string(), layout).size();
    }
    EXPECT_EQ(members, 191u);
    // 20 members carry none of the fields that make mail: headerless bodies (search-partial,
    // sort-partial: a blank line, then a digit) or only X-Extra or References fields.
    EXPECT_EQ(filed, 171u);
}

TEST_F(ImporterStore, NamesAndSkips) {
    const std::string dated = "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\n"
                              "Subject: =?utf-8?q?caf=C3=A9_/_menu?=\r\n\r\nhello\r\n";
    const std::string bareHeader = "Message-ID: <x@y>\r\n";
    const std::string text = "just some words\r\nno headers here\r\n";
    const std::string undated = "From: a@b\r\n\r\nbody\r\n";
    const std::string received = "Received: from a by b; Wed, 6 Mar 2024 09:00:00 +0000\r\n"
                                 "Received: from x by a; Wed, 6 Mar 2024 08:59:00 +0000\r\n"
                                 "Date: not a date\r\nSubject: r\r\n\r\nbody\r\n";

    auto paths = store({dated, "", text, bareHeader, dated, undated, received}, "///", layout);
    ASSERT_EQ(paths.size(), 5u);
    auto datedName =
        "Imported/Messages/2024/2024-03-05 café menu i" + qs::Importer::fingerprint(dated) + ".eml";
    // The local day of 10:00 UTC is 5 March in every zone from UTC-10 to UTC+13.
    EXPECT_EQ(paths[0], datedName);
    EXPECT_TRUE(paths[1].starts_with("Imported/Messages/")) << paths[1];
    EXPECT_TRUE(
        paths[1].ends_with(" (no subject) i" + qs::Importer::fingerprint(bareHeader) + ".eml"))
        << paths[1];
    // Two identical messages: one file, counted twice.
    EXPECT_EQ(paths[2], paths[0]);
    auto year = localYear(std::chrono::system_clock::now());
    EXPECT_TRUE(paths[3].starts_with("Imported/Messages/" + year + "/" + year + "-")) << paths[3];
    // An unreadable Date gives way to the newest Received date, not to today.
    EXPECT_EQ(paths[4], "Imported/Messages/2024/2024-03-06 r i" +
                            qs::Importer::fingerprint(received) + ".eml");
    EXPECT_EQ(qs::test::snapshotFiles(layout.root).size(), 4u);
}

// A message already in the vault is known by its bytes, whatever name it would get now.
TEST_F(ImporterStore, ReimportWritesNothingWhereverTheFirstCopyIs) {
    const std::string dated = "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\nSubject: s\r\n\r\nx\r\n";
    const std::string undated = "From: a@b\r\nSubject: u\r\n\r\nx\r\n";
    struct Row {
        const char* name;
        std::string message;
        std::optional<qs::Date> firstUndated;
        std::optional<qs::Date> secondUndated;
        std::string secondCollection;
        // Moves the first copy where another clock or zone would have named it.
        std::function<std::string(const std::string&)> move;
    };
    auto renamed = [&](const std::string& path) {
        std::string other =
            "Imported/A/2024/2024-03-04 s i" + qs::Importer::fingerprint(dated) + ".eml";
        fs::rename(layout.url(path), layout.url(other));
        return other;
    };
    auto kept = [](const std::string& path) {
        return path;
    };
    const std::vector<Row> rows{
        {"named for another day, as in another time zone", dated, {}, {}, "A", renamed},
        {"undated, imported again on another day", undated, qs::dateFromUnix(1'000'000'000),
         qs::dateFromUnix(1'100'000'000), "A", kept},
        {"imported again into another collection", dated, {}, {}, "B", kept},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(layout.root);
        qs::ImportBatch first(layout);
        auto path = row.move(first.store({row.message}, "A", row.firstUndated).at(0));
        first.finish();
        auto before = qs::test::snapshotFiles(layout.root);

        qs::ImportBatch second(layout);
        EXPECT_EQ(second.store({row.message, row.message}, row.secondCollection, row.secondUndated),
                  (std::vector<std::string>{path, path}));
        EXPECT_EQ(second.written(), 0);
        EXPECT_EQ(qs::test::snapshotFiles(layout.root), before);
    }
}

TEST_F(ImporterStore, DifferentMessagesOnOneNameGetACounter) {
    // Same day and subject, and so far apart in bytes that only a clash of the short hash could
    // give them one name; make the clash happen by filing the second under the first's name.
    const std::string first = "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\nSubject: s\r\n\r\na\r\n";
    const std::string second = "Date: Tue, 5 Mar 2024 10:00:00 +0000\r\nSubject: s\r\n\r\nb\r\n";
    auto path = store({first}, "Clash", layout).at(0);
    auto relative =
        "Imported/Clash/2024/2024-03-05 s i" + qs::Importer::fingerprint(first) + ".eml";
    EXPECT_EQ(path, relative);
    auto clash = layout.write(second, relative, std::chrono::system_clock::now());
    EXPECT_EQ(clash, relative.substr(0, relative.size() - 4) + " (2).eml");
    EXPECT_EQ(store({first}, "Clash", layout).at(0), relative);
}

TEST_F(ImporterStore, UnwritableVaultThrowsAndLeavesNoPartialFile) {
    // Root is a regular file: nothing can be made below it, whoever runs the test.
    fs::create_directories(layout.root.parent_path());
    std::ofstream(layout.root) << "not a folder";
    const std::string message = "Subject: x\r\n\r\nbody\r\n";
    EXPECT_THROW(store({message}, "Blocked", layout), std::system_error);
    EXPECT_EQ(qs::FileIO::read(layout.root), "not a folder");
}

// What each kind of path the user may name comes to.
TEST_F(ImporterStore, EachNamedPathGivesItsOutcome) {
    using Skip = qs::ImportOutcome::Skip;
    const std::string mail = "Subject: hello\r\n\r\nbody\r\n";
    auto write = [](const fs::path& path, const std::string& bytes) {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    };
    struct Row {
        const char* name;
        std::function<fs::path(const fs::path&)> make;
        std::int64_t imported;
        std::int64_t skipped;
        Skip reason;
        std::string firstPathHolds;
    };
    const std::vector<Row> rows{
        {"message file",
         [&](const fs::path& d) {
             write(d / "a.eml", mail);
             return d / "a.eml";
         },
         1, 0, Skip::none, "Imported/Loose Messages/"},
        {"lines ending in CR alone",
         [&](const fs::path& d) {
             write(d / "mac.eml", "From: a@b\rSubject: Old Mac\r\rbody\r");
             return d / "mac.eml";
         },
         1, 0, Skip::none, " Old Mac i"},
        {"not mail",
         [&](const fs::path& d) {
             write(d / "picture.eml", "\x89PNG\r\n\x1a\n");
             return d / "picture.eml";
         },
         0, 1, Skip::notMail, ""},
        {"missing", [](const fs::path& d) { return d / "missing.eml"; }, 0, 1, Skip::unreadable,
         ""},
        {"device, which could be read without end",
         [](const fs::path&) { return fs::path("/dev/zero"); }, 0, 1, Skip::unreadable, ""},
        {"folder that isn't a Maildir",
         [&](const fs::path& d) {
             write(d / "folder/a.eml", mail);
             return d / "folder";
         },
         0, 1, Skip::directory, ""},
        {"empty file",
         [&](const fs::path& d) {
             write(d / "empty.eml", "");
             return d / "empty.eml";
         },
         0, 1, Skip::empty, ""},
        {"mbox without a message",
         [&](const fs::path& d) {
             write(d / "list.mbox", "no separator here\n");
             return d / "list.mbox";
         },
         0, 1, Skip::noMessages, ""},
        {"Maildir: cur and new imported, tmp left alone",
         [&](const fs::path& d) {
             write(d / "Work/cur/1:2,S", mail);
             write(d / "Work/new/2", "Subject: two\r\n\r\nx\r\n");
             write(d / "Work/new/3", "not mail");
             write(d / "Work/tmp/4", "Subject: half-delivered\r\n\r\n");
             return d / "Work/";
         },
         2, 1, Skip::none, "Imported/Work/"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(layout.root);
        qs::test::TemporaryDirectory sources;
        auto path = row.make(sources.path());
        qs::ImportBatch batch(layout);
        auto outcome = batch.add(path);
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

} // namespace
