// quernstead-cli end to end: the real binary against a real Dovecot over TLS, with a vault and
// a credentials file of each test's own.
#include "demo/DemoMail.h"
#include "support/Corpus.h"
#include "support/DovecotEnvironment.h"
#include "support/DovecotSeed.h"
#include "support/FileIO.h"
#include "support/FileSnapshot.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"
#include "vault/VaultLock.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sys/wait.h>
#include <unistd.h>

namespace qs::test {
namespace {

static auto* const dovecotEnvironment = ::testing::AddGlobalTestEnvironment(new DovecotEnvironment);

namespace fs = std::filesystem;

// Each of `words` appears in `output`.
void expectSays(const std::string& output, std::initializer_list<std::string> words) {
    for (const std::string& w : words)
        EXPECT_NE(output.find(w), std::string::npos) << w << "\n" << output;
}

// The output of a finished command, which must have ended with `exitCode`.
std::string run(const ProcessResult& result, int exitCode = 0) {
    EXPECT_EQ(result.exitCode, exitCode) << result.output;
    return result.output;
}

/// One test's user on the shared server, vault and credentials file.
class CLITest : public ::testing::Test {
protected:
    void SetUp() override {
        static int serial = 0; // short names: Dovecot refuses long ones
        user_ = "cli" + std::to_string(++serial);
        dovecot().addUser(user_, password_);
        ::setenv("QUERNSTEAD_CREDENTIALS_FILE", (home_.path() / "credentials.json").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home_.path() / "config").c_str(), 1);
    }

    static DovecotFixture& dovecot() { return DovecotFixture::shared(); }
    static std::string port() { return std::to_string(dovecot().imapsPort()); }

    ProcessResult cli(std::vector<std::string> arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), {QS_CLI_PATH, "--vault", vault().string()});
        return runProcess(arguments, input);
    }

    /// As `cli` on a machine with no desktop session, keyring or credentials file.
    ProcessResult headless(std::vector<std::string> arguments) {
        arguments.insert(
            arguments.begin(),
            {"env", "-u", "QUERNSTEAD_CREDENTIALS_FILE", "-u", "DISPLAY",
             "DBUS_SESSION_BUS_ADDRESS=unix:path=" + (home_.path() / "no-bus").string(),
             QS_CLI_PATH, "--vault", vault().string()});
        return runProcess(arguments);
    }

    std::vector<std::string> addArguments(const std::string& user, const std::string& label,
                                          const std::vector<std::string>& folders) const {
        std::vector<std::string> arguments{"account", "add",    "--label",   label,    "--user",
                                           user,      "--host", "127.0.0.1", "--port", port()};
        for (const auto& f : folders)
            arguments.insert(arguments.end(), {"--folder", f});
        return arguments;
    }

    ProcessResult addAccount(const std::vector<std::string>& folders,
                             const std::string& label = "Demo") {
        auto arguments = addArguments(user_, label, folders);
        arguments.push_back("--password-stdin");
        return cli(arguments, password_ + "\n");
    }

    std::vector<MailAccount> accounts() const {
        return MailAccount::decodeList(FileIO::read(ArchiveLayout{vault()}.accountsURL()))
            .value_or(std::vector<MailAccount>{});
    }

    nlohmann::json credentials() const {
        auto path = home_.path() / "credentials.json";
        return fs::exists(path) ? nlohmann::json::parse(FileIO::read(path)) : nlohmann::json{};
    }

    fs::path vault() const { return home_.path() / vaultName_; }

    FileSnapshot messageFiles() const { return snapshotFiles(vault() / "Demo"); }

    std::string user_;
    std::string vaultName_ = "vault";
    std::string password_ = "secret one";
    TemporaryDirectory home_;
};

TEST_F(CLITest, BacksUpSearchesShowsLedgerVerifiesRepairsAndFreesUpByThePhrase) {
    auto counts = seedDemoMail(dovecot(), user_, 7, 90);
    size_t total = 0;
    for (const auto& [folder, n] : counts)
        total += n;
    expectSays(run(addAccount({"INBOX", "Archive", "Newsletters", "Sent"})), {"4 of"});
    expectSays(cli({"account", "list"}).output, {"never backed up"});
    const std::string first = run(cli({"backup"}));
    EXPECT_EQ(messageFiles().size(), total);
    // Not a terminal: one line per folder, not a redrawn one, and each one's last says so.
    for (const auto& [folder, n] : counts)
        expectSays(first, {"Demo › " + folder + " · Done"});
    expectSays(first, {std::to_string(total) + " new messages saved"});
    EXPECT_EQ(first.find('\r'), std::string::npos);
    expectSays(run(cli({"backup"})), {"Everything was already in the vault"});
    EXPECT_EQ(messageFiles().size(), total);
    EXPECT_EQ(run(cli({"--quiet", "backup"})), "") << "errors only";
    auto results = nlohmann::json::parse(run(cli({"search", "Northbank", "--json"})));
    ASSERT_FALSE(results.empty());
    std::string phishing;
    for (size_t i = 0; i < results.size(); ++i) {
        EXPECT_TRUE(i == 0 || results[i - 1]["date"] >= results[i]["date"]) << "newest first";
        if (results[i]["subject"] == "Urgent: confirm your Northbank account") {
            phishing = results[i]["path"];
            EXPECT_TRUE(results[i]["suspicious"].get<bool>());
        }
    }
    ASSERT_FALSE(phishing.empty()) << results;
    expectSays(cli({"search", "Northbank", "--limit", "1"}).output,
               {"1 of " + std::to_string(results.size()) + " messages"});
    expectSays(run(cli({"show", phishing})),
               {"Replies would go to support@collect-desk.example", "northbank.example → ",
                "The text shows one website but the link opens another.", "tracker", "✗ spf fail",
                "Please confirm your details"});
    auto message =
        nlohmann::json::parse(run(cli({"show", (vault() / phishing).string(), "--json"})));
    EXPECT_EQ(message["path"], phishing);
    EXPECT_EQ(message["trust"], "failed");
    ASSERT_EQ(message["linkWarnings"].size(), 1u);
    EXPECT_EQ(message["linkWarnings"][0]["actualHost"], "login.secure-check.example");
    EXPECT_EQ(message["copy"],
              (nlohmann::json{{"status", "verified"}, {"help", message["copy"]["help"]}}));
    EXPECT_GE(nlohmann::json::parse(run(cli({"list", "--filter", "trackers", "--json"}))).size(),
              counts["Newsletters"]);
    expectSays(run(cli({"ledger"})), {"Demo · checked just now", "Sent · just now"});

    // One file gone and one changed: verify finds both and a backup fetches them again.
    const FileSnapshot original = messageFiles();
    const std::string missing = original.begin()->first,
                      edited = std::next(original.begin())->first;
    const std::string changed = "X-Edited: by hand\r\n" + original.at(edited).first;
    fs::remove(vault() / "Demo" / missing);
    std::ofstream(vault() / "Demo" / edited, std::ios::binary | std::ios::trunc) << changed;
    const std::string folder = fs::path(missing).begin()->string(),
                      line = "Demo › " + folder + " · ";
    ASSERT_EQ(fs::path(edited).begin()->string(), folder);
    expectSays(run(cli({"verify"}), 1),
               {line + std::to_string(counts[folder] - 2) + " verified · 1 missing · 1 differing"});
    expectSays(run(cli({"backup"})), {"2 repaired"});
    for (const auto& [file, content] : original)
        EXPECT_EQ(FileIO::read(vault() / "Demo" / file), content.first) << file;
    EXPECT_EQ(FileIO::read(vault() / ".quernstead/set-aside/Demo" / edited), changed);
    expectSays(run(cli({"verify"})), {line + std::to_string(counts[folder]) +
                                      " verified · 0 missing · 0 differing · 1 set aside"});

    // Free-up takes only the exact phrase; the server dates messages by their arrival, so
    // everything is "before" 2099.
    const size_t before = dovecot().messages(user_, "INBOX").size();
    std::vector<std::string> freeUp{"free-up", "--account", "Demo",      "--mailbox",
                                    "INBOX",   "--before",  "2099-01-01"};
    for (const std::string wrong : {"release", "RELEASE 1 ", "RELEASE 999"}) {
        auto arguments = freeUp;
        arguments.insert(arguments.end(), {"--confirm", wrong});
        expectSays(run(cli(arguments), 1), {"Nothing was released"});
        EXPECT_EQ(dovecot().messages(user_, "INBOX").size(), before) << wrong;
    }
    const std::string survey = cli(freeUp, "no\n").output;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(survey, match, std::regex("Type (RELEASE ([0-9]+))"))) << survey;
    const size_t n = std::stoul(match[2]);
    ASSERT_GT(n, 0u);
    expectSays(run(cli(freeUp, match[1].str() + "\n")), {"released from Demo"});
    EXPECT_EQ(dovecot().messages(user_, "INBOX").size(), before - n);
    ASSERT_EQ(cli({"account", "remove", "Demo"}).exitCode, 0);
    EXPECT_EQ(messageFiles().size(), total) << "neither a release nor a removal deletes mail";
    expectSays(cli({"account", "list"}).output, {"No accounts yet"});
}

// Each path that gives nothing says why on a line of its own, and one that can't be read makes
// the command fail; text from mail reaches the terminal without its control characters.
TEST_F(CLITest, ImportCountsTellsWhatItSkippedAndPrintsNoControlBytes) {
    const fs::path sources = home_.path() / "sources";
    fs::create_directories(sources / "folder");
    // Retitles the terminal, rings, backs over a word, returns to the line start, reverses.
    const std::string subject = "Pay \x1b]0;owned\x07now\b\b\bX\rY \xe2\x80\xae"
                                "evil \xc2\x9b"
                                "2J";
    std::ofstream(sources / "hostile.eml", std::ios::binary)
        << "From: a@example.org\r\nSubject: " + subject + "\r\n\r\nbody\x1b[2J\r\n";
    std::ofstream(sources / "notes.eml") << "just words\r\n";
    std::ofstream(sources / "empty.eml").flush();
    std::vector<std::string> arguments{"import"};
    for (const char* name : {"hostile.eml", "notes.eml", "empty.eml", "missing.eml", "folder"})
        arguments.push_back((sources / name).string());
    const std::string imported = run(cli(arguments), 1);
    expectSays(imported,
               {"Imported 1 message · 4 skipped", "notes.eml: wasn’t a valid email",
                "empty.eml: is empty", "missing.eml: couldn’t be read — No such file or directory",
                "folder: is a folder, not a mail file or a Maildir"});
    // Again, with an mbox: a message already filed counts as imported.
    const fs::path mbox = corpusRoot() / "dovecot-imaptest/tests/default.mbox";
    const std::string again =
        run(cli({"import", (sources / "hostile.eml").string(), mbox.string()}));
    std::smatch match;
    ASSERT_TRUE(std::regex_search(again, match, std::regex("Imported ([0-9]+) message"))) << again;
    const size_t count = std::stoul(match[1]);
    EXPECT_GT(count, 1u);
    EXPECT_LE(count, splitMbox(FileIO::read(mbox)).size() + 1);
    EXPECT_EQ(nlohmann::json::parse(run(cli({"list", "--account", "Imported", "--json"}))).size(),
              count);
    const std::string listed = run(cli({"search", "owned"}));
    auto records = nlohmann::json::parse(run(cli({"search", "owned", "--json"})));
    ASSERT_EQ(records.size(), 1u) << records;
    const std::string shown = run(cli({"show", records[0]["path"].get<std::string>()}));
    for (const auto& printed : {listed, shown}) {
        for (const std::string raw : {"\x1b", "\x07", "\b", "\xe2\x80\xae", "\xc2\x9b"})
            EXPECT_EQ(printed.find(raw), std::string::npos) << printed;
        expectSays(printed, {"Pay ␛]0;owned␇now␈␈␈X␍Y �evil �2J"});
    }
    expectSays(shown, {"body␛[2J"});
    EXPECT_NE(records[0]["subject"].get<std::string>().find("\x1b]0;owned\x07"), std::string::npos);
}

// Ctrl-C, and SIGTERM as `systemctl stop` sends it, let the batch in hand reach the disk, say
// what was saved, and leave a vault that the next run completes without a duplicate.
TEST_F(CLITest, ASignalStopsABackupAfterTheBatchAndTheNextRunCompletesIt) {
    // A small folder first, so its line marks the moment the big one has begun.
    std::vector<std::string> big;
    for (auto& m : demo::DemoMail::generate(3, 400))
        big.push_back(std::move(m.bytes));
    seedFolders(dovecot(), user_,
                {{"A", {"Subject: first\r\nFrom: a@b.example\r\n\r\nhi\r\n"}}, {"B", big}});
    for (int signal : {SIGINT, SIGTERM}) {
        vaultName_ = "vault-" + std::to_string(signal);
        ASSERT_EQ(addAccount({"A", "B"}).exitCode, 0);
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::dup2(ends[1], 1);
            ::dup2(ends[1], 2);
            ::execl(QS_CLI_PATH, QS_CLI_PATH, "--vault", vault().c_str(), "backup", nullptr);
            ::_exit(127);
        }
        ::close(ends[1]);
        std::string output;
        char buffer[4096];
        bool signalled = false;
        for (ssize_t got; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
            output.append(buffer, static_cast<size_t>(got));
            if (!signalled && output.find("Demo › A") != std::string::npos)
                signalled = ::kill(pid, signal) == 0;
        }
        ::close(ends[0]);
        int status = 0;
        ::waitpid(pid, &status, 0);
        ASSERT_TRUE(signalled) << output;
        ASSERT_TRUE(WIFEXITED(status)) << "the program ends by itself, not by the signal\n"
                                       << output;
        EXPECT_EQ(WEXITSTATUS(status), 1) << output;
        size_t kept = messageFiles().size();
        EXPECT_LT(kept, big.size() + 1) << output;
        // What was saved is what is on the disk, and no half-written file stays.
        expectSays(output, {"Stopping after the current batch…",
                            "Stopped — " + std::to_string(kept) + " new message"});
        for (const auto& [file, content] : messageFiles())
            EXPECT_EQ(fs::path(file).extension(), ".eml") << file;
        expectSays(run(cli({"backup"})), {std::to_string(big.size() + 1 - kept) + " new message"});
        EXPECT_EQ(messageFiles().size(), big.size() + 1);
    }
}

TEST_F(CLITest, FailuresAndMisuseHaveTheirExitStatus) {
    const std::string mbox = (corpusRoot() / "dovecot-imaptest/tests/default.mbox").string();
    const std::vector<std::string> add{"account", "add", "--user", user_, "--host", "127.0.0.1"};
    auto with = [](std::vector<std::string> first, const std::vector<std::string>& more) {
        first.insert(first.end(), more.begin(), more.end());
        return first;
    };
    const struct {
        std::vector<std::string> arguments;
        std::string input;
        int exitCode;
        std::string words;
    } cases[] = {
        // clang-format off
        {{"--version"}, "", 0, "quernstead-cli "},
        {{"frobnicate"}, "", 2, "unknown command ‘frobnicate’"},
        {{"list", "--filter", "shiny"}, "", 2, "Unknown filter"},
        {{"list", "--account", "Nobody"}, "", 1, "No account named “Nobody” in the vault"},
        {{"search", "cats", "OR", "dogs"}, "", 2, "“OR” looks like a search operator"},
        {with(add, {"--port", port(), "--password-stdin"}), "wrong\n", 1, "The password wasn’t accepted"},
        {{"account", "add", "--user", user_, "--password-stdin"}, "x\n", 2, "Name the IMAP server"},
        {with(add, {"--provider", "aol"}), "", 2, "aol"},
        // Refused before connecting: nothing listens there.
        {{"account", "add", "--user", user_, "--host", "localhost", "--port", "1", "--plaintext-local",
          "--password-stdin"}, "x\n", 2, "--plaintext-local is only for a test server on 127.0.0.1"},
        {with(add, {"--port", port(), "--password-command", "false"}), "", 1,
         "The password command failed. “false” exited with status 1."},
        // The test CA is trusted through SSL_CERT_FILE; without it the server is a stranger.
        {with({"env", "-u", "SSL_CERT_FILE", QS_CLI_PATH}, with(add, {"--port", port(), "--password-stdin"})),
         "x\n", 1, "point SSL_CERT_FILE at that authority’s certificate"},
        {{"backup"}, "", 1, "No accounts yet"},
        {{"account", "remove", "Nobody"}, "", 1, "No account named “Nobody”. The accounts: none."},
        {{"show", "Demo/INBOX/2020/nothing.eml"}, "", 1, "No message at"},
        {{"reindex"}, "", 1, "(" + VaultLock::describeHolder("backup") + ") is working on"},
        {{"import", mbox}, "", 1, "The vault is busy"},
    };
    // clang-format on
    // Another writer holds the vault all along.
    VaultLock held(ArchiveLayout{vault()}, "backup");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.words);
        expectSays(run(c.arguments[0] == "env" ? runProcess(c.arguments, c.input)
                                               : cli(c.arguments, c.input),
                       c.exitCode),
                   {c.words});
    }
    EXPECT_FALSE(fs::exists(vault() / ".quernstead" / "accounts.json"))
        << "a failed sign-in saves nothing";
}

// The same user, server and port is one account: adding it again updates it, so no twin can
// share (and on removal take) its password. Folders are chosen by the names the CLI prints.
TEST_F(CLITest, AddingAnAccountAgainUpdatesItFoldersGoByShownNamesAndPresetsName) {
    dovecot().createFolder(user_, "Archive");
    dovecot().createFolder(user_, "Reçus");
    ASSERT_EQ(addAccount({"inbox"}).exitCode, 0);
    expectSays(run(addAccount({"Reçus", "Archive"}, "Work")), {"Updated Work · 2 of "});
    ASSERT_EQ(accounts().size(), 1u);
    EXPECT_EQ(accounts()[0].label, "Work");
    EXPECT_EQ(accounts()[0].folders, (std::vector<std::string>{"Re&AOc-us", "Archive"}));
    expectSays(run(cli({"account", "folders", "Work"})),
               {"✓ Reçus\n", "✓ Archive\n", "  INBOX · inbox\n", "2 of "});
    const struct {
        std::vector<std::string> arguments;
        int exitCode;
        std::string words;
    } cases[] = {
        // clang-format off
        {{"account", "edit", "Work", "--folder", "InBox"}, 0, "Work · 1 of "},
        {{"account", "edit", "Work", "--folder", "Nope"}, 1, "no folder named “Nope”. Its folders: "},
        {{"account", "edit", "Demo", "--folder", "INBOX"}, 1, "The accounts: Work."},
        {{"free-up", "--account", "Work", "--mailbox", "Nope", "--before", "2000-01-01"}, 1, "Work has no folder named “Nope”"},
        {{"free-up", "--account", "Work", "--mailbox", "Reçus", "--before", "2000-01-01"}, 0, "0 messages in Reçus"},
        // clang-format on
    };
    for (const auto& c : cases)
        expectSays(run(cli(c.arguments), c.exitCode), {c.words});
    EXPECT_EQ(accounts().at(0).folders, (std::vector<std::string>{"INBOX"}));
    ASSERT_EQ(cli({"account", "remove", "Work"}).exitCode, 0);
    EXPECT_TRUE(accounts().empty());
    EXPECT_TRUE(credentials().empty()) << "no password outlives its account";

    // Gmail's app password may be pasted in its groups of four, as Google shows it.
    dovecot().addUser(user_ + "g", "abcdefghijklmnop");
    expectSays(run(cli({"account", "add", "--provider", "gmail", "--user", user_ + "g", "--host",
                        "127.0.0.1", "--port", port(), "--password-stdin"},
                       "abcd efgh ijkl mnop\n")),
               {"Added Gmail", "“[Gmail]/All Mail” holds every message once"});
    ASSERT_EQ(accounts().size(), 1u);
    EXPECT_EQ(accounts()[0].provider + " " + accounts()[0].label, "gmail Gmail");
}

// Without a desktop session the keyring can't be reached, which is said as such; a password
// command serves instead, and keeps the password out of the vault and every store. A vault
// that can't be written refuses the account and keeps no password for it.
TEST_F(CLITest, HeadlessRunsTellAnUnreachableKeyringAndUseAPasswordCommand) {
    dovecot().deliver(user_, "INBOX", "Subject: hi\r\nFrom: a@b.example\r\n\r\nhi\r\n");
    auto secret = home_.path() / "secret";
    std::ofstream(secret) << password_ << "\nsecond line\n";
    auto arguments = addArguments(user_, "Cmd", {"INBOX"});
    arguments.insert(arguments.end(), {"--password-command", "cat '" + secret.string() + "'"});
    run(cli(arguments));
    EXPECT_TRUE(credentials().empty());
    EXPECT_EQ(FileIO::read(ArchiveLayout{vault()}.accountsURL()).find(password_),
              std::string::npos);
    const std::string other = user_ + "k";
    dovecot().addUser(other, password_);
    arguments = addArguments(other, "Keyring", {"INBOX"});
    arguments.push_back("--password-stdin");
    ASSERT_EQ(cli(arguments, password_ + "\n").exitCode, 0);
    const std::string backup = run(headless({"backup"}), 1);
    expectSays(backup, {"Cmd › INBOX · Done",
                        "Backup finished — 1 account needs attention · 1 new message saved",
                        "Keyring: The keyring can’t be reached."});
    EXPECT_EQ(backup.find("No saved password"), std::string::npos) << backup;

    // An account that wasn't looked at isn't up to date.
    EXPECT_EQ(run(headless({"backup", "--account", "Keyring"}), 1).find("Everything was already"),
              std::string::npos);

    // A file where the vault should be: nothing can be written below it.
    vaultName_ = "not-a-folder";
    std::ofstream{vault()}.flush();
    expectSays(run(addAccount({"INBOX"}), 1),
               {"Quernstead can’t write to the vault folder. Choose a folder you "
                "own with --vault DIR."});
    EXPECT_FALSE(credentials().contains(user_ + "@127.0.0.1:" + port())) << "no orphaned password";
}

} // namespace
} // namespace qs::test
