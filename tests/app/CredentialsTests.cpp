#include "model/Credentials.h"
#include "model/Keychain.h"
#include "model/PasswordCommandError.h"

#include "ScopedEnvironment.h"
#include "support/FileIO.h"
#include "support/JSON.h"
#include "support/TemporaryDirectory.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStandardPaths>
#include <gtest/gtest.h>

#include <fstream>

namespace {

namespace fs = std::filesystem;
using qs::Credentials::password;

qs::MailAccount account(std::string user = "ann", std::uint16_t port = 993) {
    qs::MailAccount a;
    a.id = qs::UUID::random();
    a.label = "Label " + user;
    a.username = std::move(user);
    a.server = {"h.test", port, false};
    return a;
}

class Credentials : public ::testing::Test {
protected:
    void SetUp() override {
        for (auto name :
             {"QUERNSTEAD_CREDENTIALS_FILE", "QUERNSTEAD_DEMO_DIR", "QUERNSTEAD_SNAPSHOT_DIR"})
            environment.unset(name);
    }
    nlohmann::json written() const { return nlohmann::json::parse(qs::FileIO::read(path)); }

    qs::test::TemporaryDirectory dir;
    qs::test::ScopedEnvironment environment;
    const fs::path path = dir.path() / "credentials.json";
};

TEST_F(Credentials, UsesKeychainUnlessToolingVariablesAreSet) {
    const struct {
        const char* name;
        const char* value;
        bool keychain;
    } rows[] = {
        {"QUERNSTEAD_CREDENTIALS_FILE", "", true}, // an empty path is no file
        {"QUERNSTEAD_CREDENTIALS_FILE", "/tmp/c.json", false},
        {"QUERNSTEAD_DEMO_DIR", "/tmp/demo", false},
        {"QUERNSTEAD_SNAPSHOT_DIR", "", false},
    };
    EXPECT_TRUE(qs::Credentials::usesKeychain());
    for (const auto& row : rows) {
        qs::test::ScopedEnvironment set;
        set.set(row.name, row.value);
        EXPECT_EQ(qs::Credentials::usesKeychain(), row.keychain) << row.name;
    }
}

// A missing file is made; the address is user, host and port, never the label; other entries
// are kept. A file that can't be written throws on save, but removing stays quiet.
TEST_F(Credentials, AFileKeepsEveryAccountsPassword) {
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", path.string());
    auto ann = account();
    qs::Credentials::save("first", ann);
    qs::Credentials::save("pässwörd ✓", account("bob"));
    qs::Credentials::save("second", ann);
    EXPECT_EQ(written()["ann@h.test:993"], "second");
    EXPECT_EQ(written()["bob@h.test:993"], "pässwörd ✓");
    EXPECT_EQ(password(account()), "second");
    EXPECT_EQ(password(account("ann", 143)), std::nullopt);
    qs::Credentials::remove(ann);
    EXPECT_FALSE(written().contains("ann@h.test:993"));
    EXPECT_EQ(written()["bob@h.test:993"], "pässwörd ✓");
    EXPECT_EQ(password(ann), std::nullopt);

    std::ofstream(dir.path() / "plain") << "x";
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "plain" / "c.json").string());
    EXPECT_THROW(qs::Credentials::save("pw", ann), std::system_error);
    EXPECT_NO_THROW(qs::Credentials::remove(ann));
}

// An unreadable file falls back to the map in memory, and the next save overwrites it.
TEST_F(Credentials, ACorruptFileFallsBackToMemoryAndIsOverwritten) {
    environment.set("QUERNSTEAD_DEMO_DIR", dir.path().string());
    qs::Credentials::save("from memory", account("mem"));
    for (const std::string corrupt : {"{\"ann@h.test:993\":", "[1,2]", "{\"k\":5}", "\xff"}) {
        SCOPED_TRACE(corrupt);
        std::ofstream(path, std::ios::binary) << corrupt;
        environment.set("QUERNSTEAD_CREDENTIALS_FILE", path.string());
        EXPECT_EQ(password(account("mem")), "from memory");
        qs::Credentials::save("pw", account());
        EXPECT_EQ(written()["ann@h.test:993"], "pw");
        EXPECT_EQ(written()["mem@h.test:993"], "from memory");
    }
}

// A password command stands in for every store: its first line is the password, its words are
// split as a shell would but nothing is expanded, and each way it can fail is a typed error
// that names the command.
TEST_F(Credentials, APasswordCommandGivesItsFirstLineOrATypedError) {
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", path.string());
    qs::Credentials::save("stored", account());
    const struct {
        const char* command;
        std::optional<std::string> password; // nothing: the detail's start below
        std::string detail;
    } rows[] = {
        {"printf 'pw one\\r\\nsecond line'", "pw one", ""},
        {"echo $HOME \"a  b\"", "$HOME a  b", ""},
        {"false", std::nullopt, "exited with status 1"},
        {"true", std::nullopt, "printed no password"},
        {"sh -c 'kill $$'", std::nullopt, "was ended by signal 15"},
        {"quernstead-no-such-program", std::nullopt, "couldn’t be started: "},
        {"echo 'unclosed", std::nullopt, "couldn’t be read: "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        auto a = account();
        a.passwordCommand = row.command;
        try {
            EXPECT_EQ(password(a), row.password);
            EXPECT_TRUE(row.password);
        } catch (const qs::PasswordCommandError& error) {
            EXPECT_FALSE(row.password) << error.what();
            EXPECT_EQ(error.command(), row.command);
            EXPECT_TRUE(error.detail().starts_with(row.detail)) << error.what();
        }
    }
}

// The system store for real: a private session bus with a real gnome-keyring-daemon, unlocked
// with a throwaway password, in a throwaway home. The test re-executes this program inside
// that session and runs the checks there, so the machine's own keyring is never touched.
// Items of the keyring with this user, as secret-tool lists them (label, secret, attributes).
QString itemsOf(const std::string& user) {
    QProcess tool;
    // secret-tool prints labels in the locale's encoding.
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LC_ALL", "C.UTF-8");
    tool.setProcessEnvironment(environment);
    tool.start("secret-tool",
               {"search", "--all", "--unlock", "user", QString::fromStdString(user)});
    tool.waitForFinished(30'000);
    return QString::fromUtf8(tool.readAllStandardOutput() + tool.readAllStandardError());
}

TEST(SecretService, RoundTripsInARealKeyringSession) {
    for (auto program : {"dbus-run-session", "gnome-keyring-daemon", "secret-tool"})
        if (QStandardPaths::findExecutable(program).isEmpty()) {
            GTEST_SKIP() << program << " is not installed (scripts/setup installs it)";
        }
    qs::test::TemporaryDirectory home;
    std::filesystem::create_directories(home.path() / "run");
    std::filesystem::permissions(home.path() / "run", std::filesystem::perms::owner_all);

    QProcessEnvironment environment;
    environment.insert("PATH", qEnvironmentVariable("PATH"));
    environment.insert("HOME", QString::fromStdString(home.path().string()));
    environment.insert("XDG_DATA_HOME", QString::fromStdString((home.path() / "data").string()));
    environment.insert("XDG_RUNTIME_DIR", QString::fromStdString((home.path() / "run").string()));
    environment.insert("QS_SECRET_SERVICE_SESSION", "1");

    QProcess session;
    session.setProcessEnvironment(environment);
    session.setProcessChannelMode(QProcess::MergedChannels);
    session.start("dbus-run-session",
                  {"--", "sh", "-c",
                   "echo -n throwaway | gnome-keyring-daemon --unlock --components=secrets "
                   ">/dev/null 2>&1 && exec \"$0\" --gtest_also_run_disabled_tests "
                   "--gtest_filter='SecretServiceSession.*'",
                   QCoreApplication::applicationFilePath()});
    ASSERT_TRUE(session.waitForFinished(120'000));
    auto output = QString::fromUtf8(session.readAll());
    EXPECT_EQ(session.exitCode(), 0) << output.toStdString();
    EXPECT_TRUE(output.contains("[  PASSED  ] 1 test")) << output.toStdString();
}

// Runs only inside the session above (hence disabled in a plain run).
TEST(SecretServiceSession, DISABLED_SaveReplaceLookupAndRemove) {
    ASSERT_NE(std::getenv("QS_SECRET_SERVICE_SESSION"), nullptr);
    ASSERT_TRUE(qs::Credentials::usesKeychain());
    auto work = account("ann@example.org");
    const std::string secret = "pässwörd – ✓ 密码";

    EXPECT_EQ(password(work), std::nullopt);
    qs::Credentials::save("first", work);
    qs::Credentials::save(secret, work);
    EXPECT_EQ(password(work), secret);
    EXPECT_EQ(qs::Keychain::password(work), secret);

    // Saving twice leaves one item, labelled and commented in the product's words.
    auto items = itemsOf(work.username);
    EXPECT_EQ(items.count("attribute.server = h.test"), 1) << items.toStdString();
    for (const char* line :
         {"label = Quernstead – ann@example.org", "attribute.protocol = imaps",
          "attribute.comment = App-specific password used by Quernstead to back up mail",
          "attribute.port = 993"})
        EXPECT_TRUE(items.contains(QString::fromUtf8(line))) << items.toStdString();

    // The label plays no part in the address; port does.
    auto other = account("ann@example.org");
    other.label = "Other";
    EXPECT_EQ(password(other), secret);
    EXPECT_EQ(password(account("ann@example.org", 1993)), std::nullopt);

    qs::Credentials::remove(other);
    EXPECT_EQ(password(work), std::nullopt);
    EXPECT_FALSE(itemsOf(work.username).contains("h.test"));
}

} // namespace
