#pragma once

#include "model/SettingsKeys.h"

#include "ScopedEnvironment.h"
#include "support/TemporaryDirectory.h"

#include <QCoreApplication>
#include <QSettings>
#include <QThreadPool>
#include <gtest/gtest.h>

#include <filesystem>

namespace qs::test {

/// Each test of a store gets a fresh vault, an empty settings store and a credentials file of
/// its own in force.
class StoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        settings().clear();
        environment.set("QUERNSTEAD_ARCHIVE_DIR", vault().string());
        environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "credentials.json").string());
    }
    void TearDown() override {
        // Workers still running hold the store only weakly; let them end before the next test.
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
        settings().clear();
    }

    static QSettings settings() {
        return QSettings(SettingsKeys::organisation, SettingsKeys::application);
    }
    std::filesystem::path vault() const { return dir.path() / "vault"; }

    TemporaryDirectory dir;
    ScopedEnvironment environment;
};

} // namespace qs::test
