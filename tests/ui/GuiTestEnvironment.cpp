// The Qt side of test_ui: one QGuiApplication on the offscreen platform for the whole program
// (GoogleTest owns main), and a private home so the machine's settings are never touched.

#include <QGuiApplication>
#include <QSettings>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

class GuiEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "qs-ui-home-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        home_ = pattern;
        ::setenv("HOME", home_.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home_ / ".config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home_ / ".local/share").c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", home_.c_str(), 1);
        ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
        for (auto name : {"QUERNSTEAD_ARCHIVE_DIR", "QUERNSTEAD_CREDENTIALS_FILE",
                          "QUERNSTEAD_DEMO_DIR", "QUERNSTEAD_SNAPSHOT_DIR"}) {
            ::unsetenv(name);
        }
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                           QString::fromStdString((home_ / ".config").string()));
        static int argc = 1;
        static char name[] = "test_ui";
        static char* argv[] = {name, nullptr};
        application_ = new QGuiApplication(argc, argv);
    }

    void TearDown() override {
        delete application_;
        std::error_code ignored;
        std::filesystem::remove_all(home_, ignored);
    }

private:
    std::filesystem::path home_;
    QGuiApplication* application_ = nullptr;
};

[[maybe_unused]] const auto* registered = ::testing::AddGlobalTestEnvironment(new GuiEnvironment);

} // namespace
