#pragma once

// The Qt side of a test program that GoogleTest drives: one application object for the whole
// program, and a private home so settings, Documents and keyrings of the machine are never
// touched.

#include <QSettings>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace qs::test {

template <typename Application>
class QtTestEnvironment : public ::testing::Environment {
public:
    /// `offscreen`: windows draw nowhere, and the runtime folder is the private home too.
    QtTestEnvironment(const char* name, bool offscreen) : name_(name), offscreen_(offscreen) {}

    void SetUp() override {
        std::string pattern =
            (std::filesystem::temp_directory_path() / (std::string("qs-") + name_ + "-home-XXXXXX"))
                .string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        home_ = pattern;
        ::setenv("HOME", home_.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home_ / ".config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home_ / ".local/share").c_str(), 1);
        if (offscreen_) {
            ::setenv("XDG_RUNTIME_DIR", home_.c_str(), 1);
            ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
        }
        // No session bus: a test that reached the keyring by mistake fails instead of writing
        // to a real one. The Secret Service test's child runs on a bus of its own.
        if (std::getenv("QS_SECRET_SERVICE_SESSION") == nullptr)
            ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
        for (auto variable : {"QUERNSTEAD_ARCHIVE_DIR", "QUERNSTEAD_CREDENTIALS_FILE",
                              "QUERNSTEAD_DEMO_DIR", "QUERNSTEAD_SNAPSHOT_DIR"})
            ::unsetenv(variable);
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                           QString::fromStdString((home_ / ".config").string()));
        static int argc = 1;
        static char* argv[] = {const_cast<char*>(name_), nullptr};
        application_ = new Application(argc, argv);
    }

    void TearDown() override {
        delete application_;
        std::error_code ignored;
        std::filesystem::remove_all(home_, ignored);
    }

private:
    const char* name_;
    bool offscreen_;
    std::filesystem::path home_;
    Application* application_ = nullptr;
};

} // namespace qs::test
