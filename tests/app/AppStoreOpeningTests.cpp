#include "model/AppStore.h"
#include "model/AttachmentFiles.h"
#include "model/CopyStatus.h"

#include "BrowsingFixture.h"
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
        {"no size, content not looked at", "junk", "Ann", std::nullopt,
         {CopyStatus::Kind::saved, 0, 0}},
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

    struct Text {
        CopyStatus status;
        const char* symbol;
        const char* help;
    };
    const Text texts[] = {
        {{CopyStatus::Kind::verified, 512, 0},
         "checkmark.shield.fill",
         "The file holds exactly the 512 bytes your server sent, and reads as a complete email."},
        {{CopyStatus::Kind::differs, 700, 512},
         "exclamationmark.shield.fill",
         "The file is 512 bytes but the server sent 700. Run a backup to fetch it again."},
        {{CopyStatus::Kind::imported, 0, 0},
         "square.and.arrow.down",
         "Imported from an .eml or .mbox file."},
        {{CopyStatus::Kind::saved, 0, 0},
         "doc",
         "Saved before Quernstead recorded server sizes; it will be verified after the next "
         "backup."},
    };
    for (const auto& t : texts) {
        EXPECT_EQ(t.status.symbol().toStdString(), t.symbol);
        EXPECT_EQ(t.status.helpText().toStdString(), t.help);
    }
}

class OpeningTest : public qs::test::BrowsingTest {};

// The big message is opened first, so its parse is the one most likely to finish last.
TEST_F(OpeningTest, RapidSelectionShowsTheLastAndAMissingFileKeepsThePrevious) {
    std::string html = "<html><body>";
    while (html.size() < 4'000'000) {
        html += "<p>Lots of <a href=\"https://tracker.example/x\">words</a> here</p>\n";
    }
    put(vault() / "Ann/INBOX/a.eml",
        "From: A <a@example.org>\r\nSubject: Big\r\nDate: Mon, 15 Jan 2024 10:00:00 +0000\r\n"
        "Content-Type: text/html\r\n\r\n" +
            html);
    put(vault() / "Ann/INBOX/b.eml", message("Bee", midMonth(2024, 2)));
    put(vault() / "Ann/INBOX/c.eml", message("Sea", midMonth(2024, 3)));
    AppStore store;
    ASSERT_TRUE(scan(store));

    for (const char* path : {"Ann/INBOX/a.eml", "Ann/INBOX/b.eml", "Ann/INBOX/c.eml"}) {
        store.setSelectedPath(std::string(path));
    }
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

// Server sizes come from the accounts' sync files; the seal follows them.
TEST_F(OpeningTest, ServerSizesFromTheSyncStateDecideTheSeal) {
    const std::string same = "Ann/INBOX/same.eml";
    const std::string longer = "Ann/INBOX/longer.eml";
    const std::string unknown = "Ann/INBOX/unknown.eml";
    const std::string imported = "Imported/Mail/i.eml";
    for (const auto& path : {same, longer, unknown, imported}) {
        put(vault() / path, message(path, midMonth(2024, 4)));
    }
    AppStore store;
    qs::MailAccount account;
    account.id = qs::UUID::random();
    account.label = "Ann";
    account.username = "ann";
    account.server = {"imap.example.org", 993, false};
    store.addAccount(account, "secret");
    qs::AccountSyncState state;
    auto& folder = state.folders["INBOX"];
    folder.files = {{"7", same}, {"8", longer}, {"9", unknown}};
    folder.sizes =
        std::map<std::string, int64_t>{{"7", int64_t(fs::file_size(vault() / same))},
                                       {"8", int64_t(fs::file_size(vault() / longer)) + 10}};
    store.layout().saveSync(state, account);
    ASSERT_TRUE(scan(store));

    struct Case {
        std::string path;
        CopyStatus::Kind kind;
    };
    for (const auto& c :
         {Case{same, CopyStatus::Kind::verified}, Case{longer, CopyStatus::Kind::differs},
          Case{unknown, CopyStatus::Kind::saved}, Case{imported, CopyStatus::Kind::imported}}) {
        store.setSelectedPath(c.path);
        ASSERT_TRUE(waitForOpen(store, c.path));
        EXPECT_EQ(store.openMessage()->copy.kind, c.kind) << c.path;
        EXPECT_EQ(store.openMessage()->fileSize, int64_t(fs::file_size(vault() / c.path)));
    }
}

TEST(AttachmentFilesTest, ScratchCopiesPerMessage) {
    auto attachment = [](std::string name, std::string bytes) {
        qs::MailAttachment a;
        a.filename = std::move(name);
        a.data = qs::ByteSlice(std::make_shared<const std::string>(std::move(bytes)));
        return a;
    };
    auto first = qs::AttachmentFiles::temporaryURL(attachment("report.pdf", "one"), "A/x.eml");
    auto again = qs::AttachmentFiles::temporaryURL(attachment("report.pdf", "two"), "A/x.eml");
    auto other = qs::AttachmentFiles::temporaryURL(attachment("report.pdf", "three"), "A/y.eml");
    auto nameless = qs::AttachmentFiles::temporaryURL(attachment("", "four"), "A/x.eml");
    ASSERT_TRUE(first && again && other && nameless);
    EXPECT_EQ(*first, *again);
    EXPECT_EQ(qs::FileIO::read(*first), "two");
    EXPECT_NE(first->parent_path(), other->parent_path());
    EXPECT_EQ(qs::FileIO::read(*other), "three");
    EXPECT_EQ(nameless->filename(), "attachment");
    EXPECT_EQ(first->parent_path().parent_path().filename(), "Quernstead-attachments");
}

} // namespace
