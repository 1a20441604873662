// quernstead-cli end to end: the real binary against a real Dovecot over TLS, with a vault and
// a credentials file of each test's own.
#include "support/Corpus.h"
#include "support/DemoMail.h"
#include "support/DovecotEnvironment.h"
#include "support/FileIO.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"
#include "vault/VaultLock.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
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

    /// Delivers the generated mailbox of `count` messages; returns how many went to each folder.
    std::map<std::string, size_t> deliverDemo(int count, uint64_t seed = 7) {
        std::map<std::string, std::vector<std::string>> byFolder;
        for (auto& m : DemoMail::generate(seed, count))
            byFolder[m.folder].push_back(m.bytes);
        std::map<std::string, size_t> counts;
        for (const auto& [folder, messages] : byFolder) {
            if (folder != "INBOX")
                dovecot().createFolder(user_, folder);
            dovecot().deliverAll(user_, folder, messages);
            counts[folder] = messages.size();
        }
        return counts;
    }

    ProcessResult cli(std::vector<std::string> arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), {QS_CLI_PATH, "--vault", vault().string()});
        return runProcess(arguments, input);
    }

    /// `quernstead-cli account add` for this test's user, all folders named.
    ProcessResult addAccount(const std::vector<std::string>& folders) {
        std::vector<std::string> arguments{"account",         "add",
                                           "--label",         "Demo",
                                           "--user",          user_,
                                           "--host",          "127.0.0.1",
                                           "--port",          std::to_string(dovecot().imapsPort()),
                                           "--password-stdin"};
        for (const auto& f : folders)
            arguments.insert(arguments.end(), {"--folder", f});
        return cli(arguments, password_ + "\n");
    }

    fs::path vault() const { return home_.path() / "vault"; }

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
    // Not a terminal: one line per folder, not a redrawn one.
    EXPECT_NE(first.output.find("Demo › Newsletters"), std::string::npos) << first.output;
    EXPECT_EQ(first.output.find('\r'), std::string::npos);

    ProcessResult second = cli({"backup"});
    ASSERT_EQ(second.exitCode, 0) << second.output;
    EXPECT_NE(second.output.find("Everything was already in the vault"), std::string::npos)
        << second.output;
    EXPECT_EQ(messageFiles().size(), total);

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

TEST_F(CLITest, ImportsAnMboxAndFindsItsMessages) {
    const std::string mbox = "dovecot-imaptest/tests/default.mbox";
    size_t members = splitMbox(FileIO::read(corpusRoot() / mbox)).size();
    ProcessResult imported = cli({"import", (corpusRoot() / mbox).string()});
    ASSERT_EQ(imported.exitCode, 0) << imported.output;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(imported.output, match, std::regex("Imported ([0-9]+) message")))
        << imported.output;
    size_t count = std::stoul(match[1]);
    EXPECT_GT(count, 0u);
    // The scan that brings them into the index was finished, not dropped, at exit.
    EXPECT_TRUE(fs::exists(ArchiveLayout{vault()}.indexURL()));
    EXPECT_LE(count, members);
    ProcessResult listed = cli({"list", "--account", "Imported", "--json"});
    ASSERT_EQ(listed.exitCode, 0) << listed.output;
    EXPECT_EQ(nlohmann::json::parse(listed.output).size(), count);
}

TEST_F(CLITest, FreesUpOnlyWithTheExactPhrase) {
    auto counts = deliverDemo(40, 11);
    ASSERT_EQ(addAccount({"INBOX"}).exitCode, 0);
    ASSERT_EQ(cli({"backup"}).exitCode, 0);
    size_t before = dovecot().messages(user_, "INBOX").size();
    ASSERT_EQ(before, counts["INBOX"]);

    // The server dates messages by their arrival, today: everything is "before" 2099.
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

TEST_F(CLITest, CtrlCStopsABackupCleanlyAndTheNextRunCompletesIt) {
    // A small folder first, so its line marks the moment the big one has begun.
    dovecot().createFolder(user_, "A");
    dovecot().deliver(user_, "A", "Subject: first\r\nFrom: a@b.example\r\n\r\nhi\r\n");
    std::vector<std::string> big;
    for (auto& m : DemoMail::generate(3, 400))
        big.push_back(std::move(m.bytes));
    dovecot().createFolder(user_, "B");
    dovecot().deliverAll(user_, "B", big);
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
            ::kill(run.pid, SIGINT);
            signalled = true;
        }
    }
    ::close(run.output);
    int status = 0;
    ::waitpid(run.pid, &status, 0);
    ASSERT_TRUE(signalled) << output;
    ASSERT_TRUE(WIFEXITED(status)) << "the program ends by itself, not by the signal\n" << output;
    EXPECT_EQ(WEXITSTATUS(status), 1) << output;
    EXPECT_NE(output.find("Stopped"), std::string::npos) << output;
    size_t kept = messageFiles().size();
    EXPECT_LT(kept, big.size() + 1) << output;
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
    const std::vector<Case> cases{
        {{"frobnicate"}, "", 2, ""},
        {{"list", "--filter", "shiny"}, "", 2, "Unknown filter"},
        {{"account", "add", "--user", user_, "--host", "127.0.0.1", "--port",
          std::to_string(dovecot().imapsPort()), "--password-stdin"},
         "wrong\n",
         1,
         ""},
        {{"account", "add", "--user", user_, "--password-stdin"}, "x\n", 2, "Name the IMAP server"},
        {{"account", "add", "--provider", "aol", "--user", user_, "--host", "127.0.0.1"},
         "",
         2,
         "aol"},
        {{"backup"}, "", 1, "No accounts yet"},
        {{"show", "Demo/INBOX/2020/nothing.eml"}, "", 1, "No message at"},
        {{"reindex"}, "", 1, "(" + VaultLock::describeHolder("backup") + ") is working on"},
        {{"import", (corpusRoot() / "dovecot-imaptest/tests/default.mbox").string()},
         "",
         1,
         "The vault is busy"},
    };
    // Another writer holds the vault all along.
    VaultLock held(ArchiveLayout{vault()}, "backup");
    for (const Case& c : cases) {
        ProcessResult result = cli(c.arguments, c.input);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.arguments[0] << "\n" << result.output;
        EXPECT_NE(result.output.find(c.words), std::string::npos) << result.output;
    }
    EXPECT_FALSE(fs::exists(vault() / "accounts.json")) << "a failed sign-in saves nothing";
}

} // namespace
} // namespace qs::test
