#include "model/AttachmentFiles.h"
#include "model/CopyStatus.h"

#include "StoreTest.h"
#include "support/FileIO.h"

namespace {

namespace fs = std::filesystem;
using qs::AppStore;
using qs::CopyStatus;
using qs::test::message;
using qs::test::midMonth;
using qs::test::put;

TEST(CopyStatusTest, JudgesByServerSizeLengthAndValidity) {
    const std::string mail = message("Hello", midMonth(2024, 1));
    const auto n = static_cast<int64_t>(mail.size());
    struct Case {
        const char* name;
        std::string data;
        std::string account;
        std::optional<int64_t> server;
        CopyStatus expected;
    };
    // clang-format off
    const Case cases[] = {
        {"no size, imported", mail, "Imported", std::nullopt, {CopyStatus::Kind::imported, 0, 0}},
        {"no size, other account", mail, "Ann", std::nullopt, {CopyStatus::Kind::saved, 0, 0}},
        {"same length and valid", mail, "Imported", n, {CopyStatus::Kind::verified, n, 0}},
        {"longer on the server", mail, "Ann", n + 1, {CopyStatus::Kind::differs, n + 1, n}},
        {"right length, not an email", std::string(size_t(n), 'x'), "Ann", n,
         {CopyStatus::Kind::differs, n, n}},
        {"empty file, size 0", "", "Ann", 0, {CopyStatus::Kind::differs, 0, 0}},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        qs::MessageRecord record;
        record.account = c.account;
        EXPECT_EQ(CopyStatus::judge(c.data, record, c.server), c.expected);
    }

    // The seal's help, in the reader's words.
    const std::pair<CopyStatus, const char*> texts[] = {
        {{CopyStatus::Kind::verified, 512, 0},
         "The file holds exactly the 512 bytes your server sent, and reads as a complete email."},
        {{CopyStatus::Kind::differs, 700, 512},
         "The file is 512 bytes but the server sent 700. Run a backup to fetch it again."},
        {{CopyStatus::Kind::imported, 0, 0}, "Imported from an .eml or .mbox file."},
        {{CopyStatus::Kind::saved, 0, 0},
         "Saved before Quernstead recorded server sizes; it will "
         "be verified after the next backup."},
    };
    for (const auto& [status, help] : texts)
        EXPECT_EQ(status.helpText().toStdString(), help);
}

class OpeningTest : public qs::test::BrowsingTest {};

// The big message is opened first, so its parse is the one most likely to finish last.
TEST_F(OpeningTest, RapidSelectionShowsTheLastAndAMissingFileKeepsThePrevious) {
    std::string html = "<html><body>";
    while (html.size() < 4'000'000)
        html += "<p>Lots of <a href=\"https://tracker.example/x\">words</a> here</p>\n";
    put(vault() / "Ann/INBOX/a.eml",
        "From: A <a@example.org>\r\nSubject: Big\r\nDate: Mon, 15 Jan 2024 10:00:00 +0000\r\n"
        "Content-Type: text/html\r\n\r\n" +
            html);
    put(vault() / "Ann/INBOX/b.eml", message("Bee", midMonth(2024, 2)));
    put(vault() / "Ann/INBOX/c.eml", message("Sea", midMonth(2024, 3)));
    AppStore store;
    ASSERT_TRUE(scan(store));

    for (const char* path : {"Ann/INBOX/a.eml", "Ann/INBOX/b.eml", "Ann/INBOX/c.eml"})
        store.setSelectedPath(std::string(path));
    ASSERT_TRUE(waitForOpen(store, "Ann/INBOX/c.eml"));
    settle();
    EXPECT_EQ(store.openMessage()->record.path, "Ann/INBOX/c.eml");
    EXPECT_EQ(store.openMessage()->parsed.subject, "Sea");
    EXPECT_EQ(store.openMessage()->copy.kind, CopyStatus::Kind::saved);

    fs::remove(vault() / "Ann/INBOX/b.eml");
    store.setSelectedPath(std::string("Ann/INBOX/b.eml"));
    settle();
    EXPECT_EQ(store.selectedPath(), "Ann/INBOX/b.eml");
    ASSERT_TRUE(store.openMessage());
    EXPECT_EQ(store.openMessage()->record.path, "Ann/INBOX/c.eml");

    store.setSelectedPath(std::nullopt);
    EXPECT_FALSE(store.openMessage());
    store.setSelectedPath(std::string("Ann/INBOX/not-in-records.eml"));
    EXPECT_FALSE(store.openMessage());
}

TEST(AttachmentFilesTest, ScratchCopiesPerMessage) {
    auto copy = [](std::string name, std::string bytes, const char* message) {
        qs::MailAttachment a;
        a.filename = std::move(name);
        a.data = qs::ByteSlice(std::make_shared<const std::string>(std::move(bytes)));
        return qs::AttachmentFiles::temporaryURL(a, message).value_or(fs::path());
    };
    auto first = copy("report.pdf", "one", "A/x.eml");
    auto again = copy("report.pdf", "two", "A/x.eml");
    auto other = copy("report.pdf", "three", "A/y.eml");
    EXPECT_EQ(first, again);
    EXPECT_EQ(qs::FileIO::read(first), "two");
    EXPECT_NE(first.parent_path(), other.parent_path());
    EXPECT_EQ(copy("", "four", "A/x.eml").filename(), "attachment");
    EXPECT_EQ(first.parent_path().parent_path().filename(), "Quernstead-attachments");
}

} // namespace
