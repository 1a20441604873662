// quernstead-cli end to end: the real binary against a real Dovecot over TLS, with a vault and
// a credentials file of each test's own.
#include "demo/DemoMail.h"
#include "support/Corpus.h"
#include "support/DovecotEnvironment.h"
#include "support/DovecotSeed.h"
#include "support/FileIO.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"
#include "vault/VaultLock.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
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

/// One test's user on the shared server, vault and credentials file.
class CLITest : public ::testing::Test {
protected:
    void SetUp() override {
        // Short names: Dovecot refuses long ones.
        static int serial = 0;
        user_ = "cli" + std::to_string(++serial);
        dovecot().addUser(user_, password_);
        ::setenv("QUERNSTEAD_CREDENTIALS_FILE", (home_.path() / "credentials.json").c_str(), 1);
        // Settings of the test's own, so the real user's never change.
        ::setenv("XDG_CONFIG_HOME", (home_.path() / "config").c_str(), 1);
    }

    static DovecotFixture& dovecot() { return DovecotFixture::shared(); }

    /// Seeds the generated mailbox of `count` messages; returns how many went to each folder.
    std::map<std::string, size_t> deliverDemo(int count, uint64_t seed = 7) {
        return seedDemoMail(dovecot(), user_, seed, count);
    }

    ProcessResult cli(std::vector<std::string> arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), {QS_CLI_PATH, "--vault", vault().string()});
        return runProcess(arguments, input);
    }

    /// As `cli`, in the environment of a machine with no desktop session: no display, no
    /// session bus to find a keyring on, and no credentials file standing in for one.
    ProcessResult headless(std::vector<std::string> arguments) {
        arguments.insert(
            arguments.begin(),
            {"env", "-u", "QUERNSTEAD_CREDENTIALS_FILE", "-u", "DISPLAY",
             "DBUS_SESSION_BUS_ADDRESS=unix:path=" + (home_.path() / "no-bus").string(),
             QS_CLI_PATH, "--vault", vault().string()});
        return runProcess(arguments);
    }

    /// The arguments of `account add` for `user` on the test server, without a password.
    std::vector<std::string> addArguments(const std::string& user, const std::string& label,
                                          const std::vector<std::string>& folders) const {
        std::vector<std::string> arguments{
            "account", "add",    "--label",   label,    "--user",
            user,      "--host", "127.0.0.1", "--port", std::to_string(dovecot().imapsPort())};
        for (const auto& f : folders)
            arguments.insert(arguments.end(), {"--folder", f});
        return arguments;
    }

    /// `quernstead-cli account add` for this test's user, all folders named.
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

    /// Every message file under the vault's account folder, relative to the vault.
    std::vector<std::string> messageFiles() const {
        std::vector<std::string> files;
        if (!fs::exists(vault() / "Demo"))
            return files;
        for (const auto& entry : fs::recursive_directory_iterator(vault() / "Demo")) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path().lexically_relative(vault()).generic_string());
            }
        }
        return files;
    }

    std::string user_;
    std::string vaultName_ = "vault";
    std::string password_ = "secret one";
    TemporaryDirectory home_;
};

TEST_F(CLITest, BacksUpOnceSearchesShowsTheFindingsAndKeepsTheLedger) {
    auto counts = deliverDemo(90);
    size_t total = 0;
    for (const auto& [folder, n] : counts)
        total += n;

    ProcessResult added = addAccount({"INBOX", "Archive", "Newsletters", "Sent"});
    ASSERT_EQ(added.exitCode, 0) << added.output;
    EXPECT_NE(added.output.find("4 of"), std::string::npos) << added.output;

    ProcessResult listed = cli({"account", "list"});
    EXPECT_NE(listed.output.find("never backed up"), std::string::npos) << listed.output;

    ProcessResult first = cli({"backup"});
    ASSERT_EQ(first.exitCode, 0) << first.output;
    EXPECT_NE(first.output.find(std::to_string(total) + " new messages saved"), std::string::npos)
        << first.output;
    EXPECT_EQ(messageFiles().size(), total);
    // Not a terminal: one line per folder, not a redrawn one, and each one's last says so.
    for (const auto& [folder, n] : counts) {
        EXPECT_NE(first.output.find("Demo › " + folder + " · Done"), std::string::npos)
            << folder << "\n"
            << first.output;
    }
    EXPECT_EQ(first.output.find('\r'), std::string::npos);

    ProcessResult second = cli({"backup"});
    ASSERT_EQ(second.exitCode, 0) << second.output;
    EXPECT_NE(second.output.find("Everything was already in the vault"), std::string::npos)
        << second.output;
    EXPECT_EQ(messageFiles().size(), total);
    ProcessResult quiet = cli({"--quiet", "backup"});
    EXPECT_EQ(quiet.exitCode, 0);
    EXPECT_EQ(quiet.output, "") << "errors only";

    ProcessResult found = cli({"search", "Northbank", "--json"});
    ASSERT_EQ(found.exitCode, 0) << found.output;
    auto results = nlohmann::json::parse(found.output);
    ASSERT_FALSE(results.empty());
    std::string phishing;
    for (size_t i = 0; i < results.size(); ++i) {
        if (i > 0) {
            EXPECT_GE(results[i - 1]["date"], results[i]["date"]) << "newest first";
        }
        if (results[i]["subject"] == "Urgent: confirm your Northbank account") {
            phishing = results[i]["path"];
            EXPECT_TRUE(results[i]["suspicious"].get<bool>());
        }
    }
    ASSERT_FALSE(phishing.empty()) << found.output;
    // A limit says how many there were.
    ProcessResult limited = cli({"search", "Northbank", "--limit", "1"});
    EXPECT_NE(limited.output.find("1 of " + std::to_string(results.size()) + " messages"),
              std::string::npos)
        << limited.output;

    ProcessResult shown = cli({"show", phishing});
    ASSERT_EQ(shown.exitCode, 0) << shown.output;
    for (const char* words :
         {"Replies would go to support@collect-desk.example", "northbank.example → ",
          "The text shows one website but the link opens another.", "tracker", "✗ spf fail",
          "Please confirm your details"}) {
        EXPECT_NE(shown.output.find(words), std::string::npos) << words << "\n" << shown.output;
    }
    ProcessResult shownJSON = cli({"show", (vault() / phishing).string(), "--json"});
    ASSERT_EQ(shownJSON.exitCode, 0) << shownJSON.output;
    auto message = nlohmann::json::parse(shownJSON.output);
    EXPECT_EQ(message["path"], phishing);
    EXPECT_EQ(message["trust"], "failed");
    ASSERT_EQ(message["linkWarnings"].size(), 1u);
    EXPECT_EQ(message["linkWarnings"][0]["actualHost"], "login.secure-check.example");
    EXPECT_EQ(message["copy"],
              (nlohmann::json{{"status", "verified"}, {"help", message["copy"]["help"]}}));

    ProcessResult trackers = cli({"list", "--filter", "trackers", "--json"});
    ASSERT_EQ(trackers.exitCode, 0) << trackers.output;
    EXPECT_GE(nlohmann::json::parse(trackers.output).size(), counts["Newsletters"]);

    ProcessResult ledger = cli({"ledger"});
    ASSERT_EQ(ledger.exitCode, 0) << ledger.output;
    EXPECT_NE(ledger.output.find("Demo · checked just now"), std::string::npos) << ledger.output;
    EXPECT_NE(ledger.output.find("Sent · just now"), std::string::npos) << ledger.output;

    ProcessResult removed = cli({"account", "remove", "Demo"});
    ASSERT_EQ(removed.exitCode, 0) << removed.output;
    EXPECT_EQ(messageFiles().size(), total) << "removing an account never deletes mail";
    EXPECT_NE(cli({"account", "list"}).output.find("No accounts yet"), std::string::npos);
}

TEST_F(CLITest, VerifyFindsAMissingAndAChangedFileAndABackupFetchesBothAgain) {
    std::vector<std::string> messages;
    for (int n = 1; n <= 3; ++n) {
        messages.push_back("From: a@example.org\r\nSubject: Note " + std::to_string(n) +
                           "\r\nDate: Mon, 2 Mar 2026 10:00:00 +0000\r\n\r\nBody " +
                           std::to_string(n) + "\r\n");
    }
    dovecot().deliverAll(user_, "INBOX", messages);
    ASSERT_EQ(addAccount({"INBOX"}).exitCode, 0);
    ASSERT_EQ(cli({"backup"}).exitCode, 0);
    auto files = messageFiles();
    ASSERT_EQ(files.size(), 3u);
    std::sort(files.begin(), files.end());
    std::map<std::string, std::string> original;
    for (const auto& file : files)
        original[file] = FileIO::read(vault() / file);
    fs::remove(vault() / files[0]);
    const std::string changed = "X-Edited: by hand\r\n" + original[files[1]];
    std::ofstream(vault() / files[1], std::ios::binary | std::ios::trunc) << changed;

    ProcessResult before = cli({"verify"});
    EXPECT_EQ(before.exitCode, 1) << before.output;
    EXPECT_NE(before.output.find("1 verified · 1 missing · 1 differing"), std::string::npos)
        << before.output;

    ProcessResult repair = cli({"backup"});
    ASSERT_EQ(repair.exitCode, 0) << repair.output;
    EXPECT_NE(repair.output.find("2 repaired"), std::string::npos) << repair.output;
    for (const auto& file : files)
        EXPECT_EQ(FileIO::read(vault() / file), original[file]) << file;
    EXPECT_EQ(FileIO::read(vault() / ".quernstead/set-aside" / files[1]), changed);

    ProcessResult after = cli({"verify"});
    EXPECT_EQ(after.exitCode, 0) << after.output;
    EXPECT_NE(after.output.find("3 verified · 0 missing · 0 differing · 1 set aside"),
              std::string::npos)
        << after.output;
    ProcessResult again = cli({"backup"});
    EXPECT_NE(again.output.find("Everything was already in the vault"), std::string::npos)
        << again.output;
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
    std::map<std::string, std::string> files{
        {"hostile.eml", "From: a@example.org\r\nSubject: " + subject + "\r\n\r\nbody\x1b[2J\r\n"},
        {"notes.eml", "just words\r\n"},
        {"empty.eml", ""},
    };
    for (const auto& [name, bytes] : files)
        std::ofstream(sources / name, std::ios::binary) << bytes;
    std::vector<std::string> arguments{"import"};
    for (const char* name : {"hostile.eml", "notes.eml", "empty.eml", "missing.eml", "folder"})
        arguments.push_back((sources / name).string());

    ProcessResult imported = cli(arguments);
    EXPECT_EQ(imported.exitCode, 1) << imported.output;
    // The scan that brings the message into the index was finished, not dropped, at exit.
    EXPECT_TRUE(fs::exists(ArchiveLayout{vault()}.indexURL()));
    for (const std::string line :
         {"Imported 1 message · 4 skipped", "notes.eml: wasn’t a valid email",
          "empty.eml: is empty", "missing.eml: couldn’t be read — No such file or directory",
          "folder: is a folder, not a mail file or a Maildir"}) {
        EXPECT_NE(imported.output.find(line), std::string::npos) << line << "\n" << imported.output;
    }
    // Again, with an mbox: a message already filed counts as imported.
    const fs::path mbox = corpusRoot() / "dovecot-imaptest/tests/default.mbox";
    ProcessResult again = cli({"import", (sources / "hostile.eml").string(), mbox.string()});
    ASSERT_EQ(again.exitCode, 0) << again.output;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(again.output, match, std::regex("Imported ([0-9]+) message")))
        << again.output;
    const size_t count = std::stoul(match[1]);
    EXPECT_GT(count, 1u);
    EXPECT_LE(count, splitMbox(FileIO::read(mbox)).size() + 1);
    ProcessResult all = cli({"list", "--account", "Imported", "--json"});
    ASSERT_EQ(all.exitCode, 0) << all.output;
    EXPECT_EQ(nlohmann::json::parse(all.output).size(), count);

    ProcessResult listed = cli({"search", "owned"});
    ASSERT_EQ(listed.exitCode, 0) << listed.output;
    ProcessResult json = cli({"search", "owned", "--json"});
    auto records = nlohmann::json::parse(json.output);
    ASSERT_EQ(records.size(), 1u) << json.output;
    ProcessResult shown = cli({"show", records[0]["path"].get<std::string>()});
    ASSERT_EQ(shown.exitCode, 0) << shown.output;
    for (const auto& printed : {listed.output, shown.output}) {
        for (const std::string raw : {"\x1b", "\x07", "\b", "\xe2\x80\xae", "\xc2\x9b"})
            EXPECT_EQ(printed.find(raw), std::string::npos) << printed;
        EXPECT_NE(printed.find("Pay ␛]0;owned␇now␈␈␈X␍Y �evil �2J"), std::string::npos) << printed;
    }
    EXPECT_NE(shown.output.find("body␛[2J"), std::string::npos) << shown.output;
    EXPECT_NE(records[0]["subject"].get<std::string>().find("\x1b]0;owned\x07"), std::string::npos);
}

TEST_F(CLITest, FreesUpOnlyWithTheExactPhrase) {
    auto counts = deliverDemo(40, 11);
    ASSERT_EQ(addAccount({"INBOX"}).exitCode, 0);
    ASSERT_EQ(cli({"backup"}).exitCode, 0);
    size_t before = dovecot().messages(user_, "INBOX").size();
    ASSERT_EQ(before, counts["INBOX"]);

    // The server dates messages by their arrival: everything is "before" 2099.
    std::vector<std::string> freeUp{"free-up", "--account", "Demo",      "--mailbox",
                                    "INBOX",   "--before",  "2099-01-01"};
    for (const std::string wrong : {"release", "RELEASE 1 ", "RELEASE 999"}) {
        auto arguments = freeUp;
        arguments.insert(arguments.end(), {"--confirm", wrong});
        ProcessResult refused = cli(arguments);
        EXPECT_EQ(refused.exitCode, 1) << refused.output;
        EXPECT_NE(refused.output.find("Nothing was released"), std::string::npos) << refused.output;
        EXPECT_EQ(dovecot().messages(user_, "INBOX").size(), before) << wrong;
    }

    // The phrase at the prompt, read from standard input.
    ProcessResult survey = cli(freeUp, "no\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(survey.output, match, std::regex("Type (RELEASE ([0-9]+))")))
        << survey.output;
    std::string phrase = match[1];
    size_t n = std::stoul(match[2]);
    ASSERT_GT(n, 0u);

    ProcessResult released = cli(freeUp, phrase + "\n");
    ASSERT_EQ(released.exitCode, 0) << released.output;
    EXPECT_NE(released.output.find("released from Demo"), std::string::npos) << released.output;
    EXPECT_EQ(dovecot().messages(user_, "INBOX").size(), before - n);
    EXPECT_EQ(messageFiles().size(), counts["INBOX"]) << "the vault keeps every copy";
}

/// Starts the CLI with its output on a pipe; the caller reads and waits.
struct Running {
    pid_t pid = -1;
    int output = -1;
};

Running start(const std::vector<std::string>& argv) {
    int ends[2];
    if (::pipe(ends) != 0)
        throw std::runtime_error("pipe");
    pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(ends[1], 1);
        ::dup2(ends[1], 2);
        ::close(ends[0]);
        std::vector<char*> args;
        for (const auto& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        ::execv(args[0], args.data());
        ::_exit(127);
    }
    ::close(ends[1]);
    return {pid, ends[0]};
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
        Running run = start({QS_CLI_PATH, "--vault", vault().string(), "backup"});
        std::string output;
        char buffer[4096];
        bool signalled = false;
        while (true) {
            ssize_t got = ::read(run.output, buffer, sizeof buffer);
            if (got <= 0)
                break;
            output.append(buffer, static_cast<size_t>(got));
            if (!signalled && output.find("Demo › A") != std::string::npos) {
                ::kill(run.pid, signal);
                signalled = true;
            }
        }
        ::close(run.output);
        int status = 0;
        ::waitpid(run.pid, &status, 0);
        ASSERT_TRUE(signalled) << output;
        ASSERT_TRUE(WIFEXITED(status)) << "the program ends by itself, not by the signal\n"
                                       << output;
        EXPECT_EQ(WEXITSTATUS(status), 1) << output;
        EXPECT_NE(output.find("Stopping after the current batch…"), std::string::npos) << output;
        size_t kept = messageFiles().size();
        EXPECT_LT(kept, big.size() + 1) << output;
        EXPECT_NE(output.find("Stopped — " + std::to_string(kept) + " new message"),
                  std::string::npos)
            << "what was saved is what is on the disk\n"
            << output;
        for (const std::string& file : messageFiles()) {
            EXPECT_EQ(fs::path(file).extension(), ".eml") << "no half-written file stays: " << file;
        }

        ProcessResult rest = cli({"backup"});
        ASSERT_EQ(rest.exitCode, 0) << rest.output;
        EXPECT_NE(rest.output.find(std::to_string(big.size() + 1 - kept) + " new message"),
                  std::string::npos)
            << rest.output;
        EXPECT_EQ(messageFiles().size(), big.size() + 1);
    }
}

// A provider preset names the account and carries its advice; Gmail's app password may be
// pasted in its groups of four, as Google shows it.
TEST_F(CLITest, ProviderPresetNamesTheAccountAndTakesGroupedPasswords) {
    const std::string user = user_ + "g";
    dovecot().addUser(user, "abcdefghijklmnop");
    ProcessResult added =
        cli({"account", "add", "--provider", "gmail", "--user", user, "--host", "127.0.0.1",
             "--port", std::to_string(dovecot().imapsPort()), "--password-stdin"},
            "abcd efgh ijkl mnop\n");
    ASSERT_EQ(added.exitCode, 0) << added.output;
    EXPECT_NE(added.output.find("Added Gmail"), std::string::npos) << added.output;
    EXPECT_NE(added.output.find("“[Gmail]/All Mail” holds every message once"), std::string::npos)
        << added.output;
    auto accounts = MailAccount::decodeList(FileIO::read(ArchiveLayout{vault()}.accountsURL()));
    ASSERT_TRUE(accounts);
    ASSERT_EQ(accounts->size(), 1u);
    EXPECT_EQ(accounts->front().provider, "gmail");
    EXPECT_EQ(accounts->front().label, "Gmail");

    // Other providers keep the blanks: this one's password has none, so grouping breaks it.
    ProcessResult refused = cli({"account", "add", "--provider", "fastmail", "--label", "Fast",
                                 "--user", user, "--host", "127.0.0.1", "--port",
                                 std::to_string(dovecot().imapsPort()), "--password-stdin"},
                                "abcd efgh ijkl mnop\n");
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
}

TEST_F(CLITest, FailuresAndMisuseHaveTheirExitStatus) {
    struct Case {
        std::vector<std::string> arguments;
        std::string input;
        int exitCode;
        std::string words;
    };
    const std::string port = std::to_string(dovecot().imapsPort());
    // clang-format off
    const std::vector<Case> cases{
        {{"--version"}, "", 0, "quernstead-cli "},
        {{"frobnicate"}, "", 2, "unknown command ‘frobnicate’"},
        {{"account", "frobnicate"}, "", 2, "unknown command ‘frobnicate’"},
        {{"list", "--filter", "shiny"}, "", 2, "Unknown filter"},
        {{"list", "--account", "Nobody"}, "", 1, "No account named “Nobody” in the vault"},
        {{"search", "cats", "OR", "dogs"}, "", 2, "“OR” looks like a search operator"},
        {{"account", "add", "--user", user_, "--host", "127.0.0.1", "--port", port,
          "--password-stdin"}, "wrong\n", 1, "The password wasn’t accepted"},
        {{"account", "add", "--user", user_, "--password-stdin"}, "x\n", 2,
         "Name the IMAP server"},
        {{"account", "add", "--provider", "aol", "--user", user_, "--host", "127.0.0.1"}, "", 2,
         "aol"},
        // Refused before connecting: nothing listens there.
        {{"account", "add", "--user", user_, "--host", "localhost", "--port", "1",
          "--plaintext-local", "--password-stdin"}, "x\n", 2,
         "--plaintext-local is only for a test server on 127.0.0.1"},
        {{"account", "add", "--user", user_, "--host", "127.0.0.1", "--port", port,
          "--password-command", "false"}, "", 1,
         "The password command failed. “false” exited with status 1."},
        // The test CA is trusted through SSL_CERT_FILE; without it the server is a stranger.
        {{"env", "-u", "SSL_CERT_FILE", QS_CLI_PATH, "account", "add", "--user", user_, "--host",
          "127.0.0.1", "--port", port, "--password-stdin"}, "x\n", 1,
         "point SSL_CERT_FILE at that authority’s certificate"},
        {{"backup"}, "", 1, "No accounts yet"},
        {{"account", "remove", "Nobody"}, "", 1, "No account named “Nobody”. The accounts: none."},
        {{"show", "Demo/INBOX/2020/nothing.eml"}, "", 1, "No message at"},
        {{"reindex"}, "", 1, "(" + VaultLock::describeHolder("backup") + ") is working on"},
        {{"import", (corpusRoot() / "dovecot-imaptest/tests/default.mbox").string()}, "", 1,
         "The vault is busy"},
    };
    // clang-format on
    // Another writer holds the vault all along.
    VaultLock held(ArchiveLayout{vault()}, "backup");
    for (const Case& c : cases) {
        ProcessResult result =
            c.arguments[0] == "env" ? runProcess(c.arguments, c.input) : cli(c.arguments, c.input);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.arguments[0] << "\n" << result.output;
        EXPECT_NE(result.output.find(c.words), std::string::npos) << result.output;
    }
    EXPECT_FALSE(fs::exists(vault() / ".quernstead" / "accounts.json"))
        << "a failed sign-in saves nothing";
}

// The same user, server and port is one account: adding it again updates it, so no twin can
// share (and on removal take) its password. Folders are chosen by the names the CLI prints.
TEST_F(CLITest, AddingAnAccountAgainUpdatesItAndFoldersGoByTheirShownNames) {
    dovecot().createFolder(user_, "Archive");
    dovecot().createFolder(user_, "Reçus");
    ASSERT_EQ(addAccount({"inbox"}).exitCode, 0);
    ProcessResult again = addAccount({"Reçus", "Archive"}, "Work");
    ASSERT_EQ(again.exitCode, 0) << again.output;
    EXPECT_NE(again.output.find("Updated Work · 2 of "), std::string::npos) << again.output;
    auto listed = accounts();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].label, "Work");
    EXPECT_EQ(listed[0].folders, (std::vector<std::string>{"Re&AOc-us", "Archive"}));

    ProcessResult folders = cli({"account", "folders", "Work"});
    ASSERT_EQ(folders.exitCode, 0) << folders.output;
    for (const char* line : {"✓ Reçus\n", "✓ Archive\n", "  INBOX · inbox\n", "2 of "}) {
        EXPECT_NE(folders.output.find(line), std::string::npos) << line << folders.output;
    }

    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::string words;
    };
    const std::vector<Case> cases{
        // clang-format off
        {{"account", "edit", "Work", "--folder", "InBox"}, 0, "Work · 1 of "},
        {{"account", "edit", "Work", "--folder", "Nope"}, 1,
         "no folder named “Nope”. Its folders: "},
        {{"account", "edit", "Demo", "--folder", "INBOX"}, 1, "The accounts: Work."},
        {{"free-up", "--account", "Work", "--mailbox", "Nope", "--before", "2000-01-01"}, 1,
         "Work has no folder named “Nope”"},
        {{"free-up", "--account", "Work", "--mailbox", "Reçus", "--before", "2000-01-01"}, 0,
         "0 messages in Reçus"},
        // clang-format on
    };
    for (const Case& c : cases) {
        ProcessResult result = cli(c.arguments);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.arguments[3] << "\n" << result.output;
        EXPECT_NE(result.output.find(c.words), std::string::npos) << result.output;
    }
    EXPECT_EQ(accounts().at(0).folders, (std::vector<std::string>{"INBOX"}));

    ASSERT_EQ(cli({"account", "remove", "Work"}).exitCode, 0);
    EXPECT_TRUE(accounts().empty());
    EXPECT_TRUE(credentials().empty()) << "no password outlives its account";
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
    ProcessResult added = cli(arguments);
    ASSERT_EQ(added.exitCode, 0) << added.output;
    EXPECT_TRUE(credentials().empty());
    EXPECT_EQ(FileIO::read(ArchiveLayout{vault()}.accountsURL()).find(password_),
              std::string::npos);

    const std::string other = user_ + "k";
    dovecot().addUser(other, password_);
    arguments = addArguments(other, "Keyring", {"INBOX"});
    arguments.push_back("--password-stdin");
    ASSERT_EQ(cli(arguments, password_ + "\n").exitCode, 0);

    ProcessResult backup = headless({"backup"});
    EXPECT_EQ(backup.exitCode, 1) << backup.output;
    for (const char* words :
         {"Cmd › INBOX · Done", "Backup finished — 1 account needs attention · 1 new message saved",
          "Keyring: The keyring can’t be reached."}) {
        EXPECT_NE(backup.output.find(words), std::string::npos) << words << "\n" << backup.output;
    }
    EXPECT_EQ(backup.output.find("No saved password"), std::string::npos) << backup.output;

    ProcessResult again = headless({"backup", "--account", "Keyring"});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_EQ(again.output.find("Everything was already in the vault"), std::string::npos)
        << "an account that wasn't looked at isn't up to date\n"
        << again.output;

    // A file where the vault should be: nothing can be written below it.
    vaultName_ = "not-a-folder";
    std::ofstream{vault()}.flush();
    ProcessResult refused = addAccount({"INBOX"});
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
    EXPECT_NE(refused.output.find("Quernstead can’t write to the vault folder. Choose a folder "
                                  "you own with --vault DIR."),
              std::string::npos)
        << refused.output;
    EXPECT_FALSE(
        credentials().contains(user_ + "@127.0.0.1:" + std::to_string(dovecot().imapsPort())))
        << "no orphaned password";
}

} // namespace
} // namespace qs::test
