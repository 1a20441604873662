#include "model/Credentials.h"
#include "model/PasswordCommandError.h"

#include "ScopedEnvironment.h"
#include "support/FileIO.h"
#include "support/JSON.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

namespace fs = std::filesystem;

qs::MailAccount account(std::string label, std::string user = "ann", std::string host = "h.test",
                        std::uint16_t port = 993) {
    qs::MailAccount a;
    a.id = qs::UUID::random();
    a.label = std::move(label);
    a.username = std::move(user);
    a.server = {std::move(host), port, false};
    return a;
}

nlohmann::json fileContents(const fs::path& path) {
    return nlohmann::json::parse(qs::FileIO::read(path));
}

TEST(Credentials, UsesKeychainUnlessToolingVariablesAreSet) {
    struct Case {
        const char* name;
        std::vector<std::pair<const char*, const char*>> variables;
        bool keychain;
    };
    const std::vector<Case> cases = {
        {"nothing set", {}, true},
        {"credentials file", {{"QUERNSTEAD_CREDENTIALS_FILE", "/tmp/c.json"}}, false},
        {"empty credentials file path", {{"QUERNSTEAD_CREDENTIALS_FILE", ""}}, true},
        {"demo run", {{"QUERNSTEAD_DEMO_DIR", "/tmp/demo"}}, false},
        {"snapshot run, even empty", {{"QUERNSTEAD_SNAPSHOT_DIR", ""}}, false},
    };
    for (const auto& c : cases) {
        qs::test::ScopedEnvironment environment;
        for (auto name :
             {"QUERNSTEAD_CREDENTIALS_FILE", "QUERNSTEAD_DEMO_DIR", "QUERNSTEAD_SNAPSHOT_DIR"}) {
            environment.unset(name);
        }
        for (const auto& [name, value] : c.variables) {
            environment.set(name, value);
        }
        EXPECT_EQ(qs::Credentials::usesKeychain(), c.keychain) << c.name;
    }
}

TEST(CredentialsFile, SaveCreatesAMissingFileAndKeepsOtherEntries) {
    qs::test::TemporaryDirectory dir;
    auto path = dir.path() / "credentials.json";
    qs::test::ScopedEnvironment environment;
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", path.string());

    auto ann = account("Work");
    qs::Credentials::save("first", ann);
    // A missing file starts from the map in memory, which earlier tests may have filled.
    EXPECT_EQ(fileContents(path)["ann@h.test:993"], "first");
    EXPECT_EQ(qs::Credentials::password(ann), "first");

    auto bob = account("Home", "bob");
    qs::Credentials::save("pässwörd ✓", bob);
    qs::Credentials::save("second", ann);
    auto written = fileContents(path);
    EXPECT_EQ(written["ann@h.test:993"], "second");
    EXPECT_EQ(written["bob@h.test:993"], "pässwörd ✓");
    // Two accounts that differ only in label address the same password.
    EXPECT_EQ(qs::Credentials::password(account("Other label")), "second");
    EXPECT_EQ(qs::Credentials::password(account("Work", "ann", "h.test", 143)), std::nullopt);

    qs::Credentials::remove(ann);
    written = fileContents(path);
    EXPECT_FALSE(written.contains("ann@h.test:993"));
    EXPECT_EQ(written["bob@h.test:993"], "pässwörd ✓");
    EXPECT_EQ(qs::Credentials::password(ann), std::nullopt);
    EXPECT_EQ(qs::Credentials::password(bob), "pässwörd ✓");
}

TEST(CredentialsFile, ACorruptFileFallsBackToMemoryAndIsOverwritten) {
    qs::test::TemporaryDirectory dir;
    auto path = dir.path() / "credentials.json";
    qs::test::ScopedEnvironment environment;
    environment.set("QUERNSTEAD_DEMO_DIR", dir.path().string());
    // Memory first, through the in-memory store (no file in force).
    qs::Credentials::save("from memory", account("M", "mem"));
    EXPECT_EQ(qs::Credentials::password(account("M", "mem")), "from memory");

    for (const std::string corrupt : {"{\"ann@h.test:993\":", "[1,2]", "{\"k\":5}", "\xff"}) {
        std::ofstream(path, std::ios::binary) << corrupt;
        environment.set("QUERNSTEAD_CREDENTIALS_FILE", path.string());
        // Unreadable file: reading falls back to memory.
        EXPECT_EQ(qs::Credentials::password(account("M", "mem")), "from memory") << corrupt;
        qs::Credentials::save("pw", account("Work"));
        auto written = fileContents(path);
        EXPECT_EQ(written["ann@h.test:993"], "pw") << corrupt;
        EXPECT_EQ(written["mem@h.test:993"], "from memory") << corrupt;
    }
}

TEST(CredentialsFile, AFileThatCantBeWrittenThrowsAndRemoveStaysQuiet) {
    qs::test::TemporaryDirectory dir;
    std::ofstream(dir.path() / "plain") << "x";
    qs::test::ScopedEnvironment environment;
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "plain" / "c.json").string());
    EXPECT_THROW(qs::Credentials::save("pw", account("Work")), std::system_error);
    EXPECT_NO_THROW(qs::Credentials::remove(account("Work")));
}

} // namespace

// A password command stands in for every store: its first line is the password, its words are
// split as a shell would but nothing is expanded, and each way it can fail is a typed error
// that names the command.
TEST(Credentials, APasswordCommandGivesItsFirstLineOrATypedError) {
    qs::test::TemporaryDirectory dir;
    qs::test::ScopedEnvironment environment;
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "c.json").string());
    qs::Credentials::save("stored", account("Work"));
    struct Case {
        const char* command;
        std::optional<std::string> password; ///< nothing: the detail's start below
        std::string detail;
    };
    const std::vector<Case> cases = {
        {"printf 'pw one\\r\\nsecond line'", "pw one", ""},
        {"echo $HOME \"a  b\"", "$HOME a  b", ""},
        {"false", std::nullopt, "exited with status 1"},
        {"true", std::nullopt, "printed no password"},
        {"sh -c 'kill $$'", std::nullopt, "was ended by signal 15"},
        {"quernstead-no-such-program", std::nullopt, "couldn’t be started: "},
        {"echo 'unclosed", std::nullopt, "couldn’t be read: "},
    };
    for (const auto& c : cases) {
        auto a = account("Work");
        a.passwordCommand = c.command;
        try {
            EXPECT_EQ(qs::Credentials::password(a), c.password) << c.command;
            EXPECT_TRUE(c.password) << c.command;
        } catch (const qs::PasswordCommandError& error) {
            EXPECT_FALSE(c.password) << c.command << ": " << error.what();
            EXPECT_EQ(error.command(), c.command);
            EXPECT_EQ(error.detail().rfind(c.detail, 0), 0u) << c.command << ": " << error.what();
        }
    }
}
