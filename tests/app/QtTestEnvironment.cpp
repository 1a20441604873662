// The Qt side of test_app: one QCoreApplication for the whole program (GoogleTest owns main),
// and a private home so settings, Documents and keyrings of the machine are never touched.

#include <QCoreApplication>
#include <QSettings>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

class QtEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "qs-app-home-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        home_ = pattern;
        ::setenv("HOME", home_.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home_ / ".config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home_ / ".local/share").c_str(), 1);
        // No session bus: a test that reached the keychain by mistake fails instead of
        // writing to a real one. The Secret Service test's child runs on a bus of its own.
        if (std::getenv("QS_SECRET_SERVICE_SESSION") == nullptr) {
            ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
        }
        for (auto name : {"QUERNSTEAD_ARCHIVE_DIR", "QUERNSTEAD_CREDENTIALS_FILE",
                          "QUERNSTEAD_DEMO_DIR", "QUERNSTEAD_SNAPSHOT_DIR"}) {
            ::unsetenv(name);
        }
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                           QString::fromStdString((home_ / ".config").string()));
        static int argc = 1;
        static char name[] = "test_app";
        static char* argv[] = {name, nullptr};
        application_ = new QCoreApplication(argc, argv);
    }

    void TearDown() override {
        delete application_;
        std::error_code ignored;
        std::filesystem::remove_all(home_, ignored);
    }

private:
    std::filesystem::path home_;
    QCoreApplication* application_ = nullptr;
};

[[maybe_unused]] const auto* registered = ::testing::AddGlobalTestEnvironment(new QtEnvironment);

} // namespace
