#include "model/Credentials.h"
#include "model/Keychain.h"
#include "model/PasswordCommandError.h"

#include "StoreTest.h"
#include "support/FileIO.h"
#include "support/JSON.h"

#include <QProcess>
#include <QStandardPaths>

namespace {

namespace fs = std::filesystem;
using qs::Credentials::password;

qs::MailAccount account(const std::string& user = "ann", std::uint16_t port = 993) {
    return qs::test::account("Label " + user, user, "h.test", port);
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

// The address is user, host and port, never the label. An unwritable file throws on save only.
TEST_F(Credentials, AFileKeepsEveryAccountsPasswordAndIsOverwrittenWhenCorrupt) {
    EXPECT_TRUE(qs::Credentials::usesKeychain());
    environment.set("QUERNSTEAD_CREDENTIALS_FILE", "");
    EXPECT_TRUE(qs::Credentials::usesKeychain()) << "an empty path is no file";
    environment.set("QUERNSTEAD_SNAPSHOT_DIR", "");
    EXPECT_FALSE(qs::Credentials::usesKeychain());
    environment.unset("QUERNSTEAD_SNAPSHOT_DIR");
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

    // A corrupt file falls back to memory and is overwritten.
    environment.unset("QUERNSTEAD_CREDENTIALS_FILE");
    environment.set("QUERNSTEAD_DEMO_DIR", dir.path().string());
    qs::Credentials::save("from memory", account("mem"));
    for (const std::string corrupt : {"{\"ann@h.test:993\":", "[1,2]"}) {
        SCOPED_TRACE(corrupt);
        std::ofstream(path, std::ios::binary) << corrupt;
        environment.set("QUERNSTEAD_CREDENTIALS_FILE", path.string());
        EXPECT_EQ(password(account("mem")), "from memory");
        qs::Credentials::save("pw", account());
        EXPECT_EQ(written()["ann@h.test:993"], "pw");
        EXPECT_EQ(written()["mem@h.test:993"], "from memory");
    }
}

// Words are split as a shell would, but nothing is expanded.
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

QString itemsOf(const std::string& user) {
    QProcess tool;
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LC_ALL", "C.UTF-8");
    tool.setProcessEnvironment(environment);
    tool.start("secret-tool",
               {"search", "--all", "--unlock", "user", QString::fromStdString(user)});
    tool.waitForFinished(30'000);
    return QString::fromUtf8(tool.readAllStandardOutput() + tool.readAllStandardError());
}

// A real gnome-keyring-daemon on a private session bus in a throwaway home: this program runs
// again inside it, so the machine's own keyring is never touched.
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
    environment.insert("QS_SECRET_SERVICE_SESSION", "1");
    for (auto [name, below] :
         {std::pair{"HOME", ""}, {"XDG_DATA_HOME", "data"}, {"XDG_RUNTIME_DIR", "run"}})
        environment.insert(name, QString::fromStdString((home.path() / below).string()));
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

    // Saving twice leaves one item.
    auto items = itemsOf(work.username);
    EXPECT_EQ(items.count("attribute.server = h.test"), 1) << items.toStdString();
    for (const char* line :
         {"label = Quernstead – ann@example.org", "attribute.protocol = imaps",
          "attribute.comment = App-specific password used by Quernstead to back up mail",
          "attribute.port = 993"})
        EXPECT_TRUE(items.contains(QString::fromUtf8(line))) << items.toStdString();
    auto other = account("ann@example.org");
    other.label = "Other";
    EXPECT_EQ(password(other), secret);
    EXPECT_EQ(password(account("ann@example.org", 1993)), std::nullopt);
    qs::Credentials::remove(other);
    EXPECT_EQ(password(work), std::nullopt);
    EXPECT_FALSE(itemsOf(work.username).contains("h.test"));
}

} // namespace
