#pragma once

// One application object for a GoogleTest program, and a private home so that the machine's
// settings, Documents and keyrings are never touched.

#include "support/TemporaryDirectory.h"

#include <QSettings>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace qs::test {

template <typename Application>
class QtTestEnvironment : public ::testing::Environment {
public:
    /// `offscreen`: windows draw nowhere, and the runtime folder is the private home too.
    QtTestEnvironment(const char* name, bool offscreen) : name_(name), offscreen_(offscreen) {}

    void SetUp() override {
        home_ = std::make_unique<TemporaryDirectory>();
        const std::filesystem::path& home = home_->path();
        ::setenv("HOME", home.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);
        if (offscreen_) {
            ::setenv("XDG_RUNTIME_DIR", home.c_str(), 1);
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
                           QString::fromStdString((home / ".config").string()));
        static int argc = 1;
        static char* argv[] = {const_cast<char*>(name_), nullptr};
        application_ = new Application(argc, argv);
    }

    void TearDown() override {
        delete application_;
        home_.reset();
    }

private:
    const char* name_;
    bool offscreen_;
    std::unique_ptr<TemporaryDirectory> home_;
    Application* application_ = nullptr;
};

} // namespace qs::test
