// The system store for real: a private session bus with a real gnome-keyring-daemon, unlocked
// with a throwaway password, in a throwaway home. The test re-executes this program inside
// that session and runs the checks there, so the machine's own keyring is never touched.

#include "model/Credentials.h"
#include "model/Keychain.h"

#include "support/TemporaryDirectory.h"

#include <QCoreApplication>
#include <QProcess>
#include <QStandardPaths>
#include <gtest/gtest.h>

namespace {

qs::MailAccount account(std::string label, std::string user) {
    qs::MailAccount a;
    a.id = qs::UUID::random();
    a.label = std::move(label);
    a.username = std::move(user);
    a.server = {"imap.example.org", 993, false};
    return a;
}

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
    auto work = account("Work", "ann@example.org");
    const std::string password = "pässwörd – ✓ 密码";

    EXPECT_EQ(qs::Credentials::password(work), std::nullopt);
    qs::Credentials::save("first", work);
    qs::Credentials::save(password, work);
    EXPECT_EQ(qs::Credentials::password(work), password);
    EXPECT_EQ(qs::Keychain::password(work), password);

    // Saving twice leaves one item, labelled and commented in the product's words.
    auto items = itemsOf(work.username);
    EXPECT_EQ(items.count("attribute.server = imap.example.org"), 1) << items.toStdString();
    for (const char* line :
         {"label = Quernstead – ann@example.org", "attribute.protocol = imaps",
          "attribute.comment = App-specific password used by Quernstead to back up mail",
          "attribute.port = 993"})
        EXPECT_TRUE(items.contains(QString::fromUtf8(line))) << items.toStdString();

    // The label plays no part in the address; port does.
    EXPECT_EQ(qs::Credentials::password(account("Other", "ann@example.org")), password);
    auto otherPort = work;
    otherPort.server.port = 1993;
    EXPECT_EQ(qs::Credentials::password(otherPort), std::nullopt);

    qs::Credentials::remove(account("Other", "ann@example.org"));
    EXPECT_EQ(qs::Credentials::password(work), std::nullopt);
    EXPECT_FALSE(itemsOf(work.username).contains("imap.example.org"));
}

} // namespace
