// The import panel's choice reaches the vault: file URLs, as the panel hands them to the store.

#include "model/AppStore.h"

#include "app/ScopedEnvironment.h"
#include "support/TemporaryDirectory.h"

#include <QTest>
#include <QUrl>
#include <gtest/gtest.h>

#include <fstream>

namespace qs {
namespace {

namespace fs = std::filesystem;

// Generous: the wait ends when the import does; the limit only keeps a broken run from hanging.
constexpr int waitMilliseconds = 60'000;

std::vector<fs::path> messageFiles(const fs::path& root) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.path().extension() == ".eml") {
            found.push_back(fs::relative(entry.path(), root));
        }
    }
    return found;
}

TEST(ImportPanel, TwoMessagesAndAMailboxChosenByURLAllReachTheVault) {
    test::TemporaryDirectory dir;
    test::ScopedEnvironment environment;
    const fs::path vault = dir.path() / "vault";
    environment.set("QUERNSTEAD_ARCHIVE_DIR", vault.string());
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "credentials.json").string());
    // A blank and an accent: the panel's URLs carry them percent-encoded.
    const fs::path first = dir.path() / "Note from Zoë.eml";
    const fs::path second = dir.path() / "second.eml";
    std::ofstream(first, std::ios::binary) << "From: zoe@example.org\r\nSubject: One\r\n"
                                              "Date: Mon, 2 Mar 2020 10:00:00 +0000\r\n\r\nHi.\r\n";
    std::ofstream(second, std::ios::binary)
        << "From: ann@example.org\r\nSubject: Two\r\n"
           "Date: Tue, 3 Mar 2020 10:00:00 +0000\r\n\r\nHo.\r\n";
    // Eight messages, each after a blank line and a "From " line.
    const fs::path mbox = fs::path(QS_CORPUS_DIR) / "dovecot-imaptest/tests/sort-size.mbox";

    AppStore store;
    bool finished = false;
    QObject::connect(&store, &AppStore::importFinished, [&] { finished = true; });
    QList<QUrl> chosen;
    for (const fs::path& file : {first, second, mbox}) {
        chosen.append(QUrl::fromLocalFile(QString::fromStdString(file.string())));
    }
    store.importFileUrls(chosen);
    ASSERT_TRUE(QTest::qWaitFor([&] { return finished; }, waitMilliseconds));

    EXPECT_EQ(store.importMessage(), QStringLiteral("Imported 10 messages"));
    const fs::path imported = vault / "Imported";
    ASSERT_TRUE(fs::is_directory(imported));
    EXPECT_EQ(messageFiles(imported / "sort-size").size(), 8u);
    EXPECT_EQ(messageFiles(imported / "Loose Messages").size(), 2u);
    EXPECT_EQ(messageFiles(vault).size(), 10u) << "nothing filed outside Imported";
}

} // namespace
} // namespace qs
