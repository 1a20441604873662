#pragma once

#include "model/AppStore.h"
#include "model/SettingsKeys.h"

#include "support/TemporaryDirectory.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace qs::test {

/// Puts every variable it changed back at its end, so no test's variables leak into the next.
class ScopedEnvironment {
public:
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved_)
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }
    void set(const std::string& name, const std::optional<std::string>& value) {
        const char* old = std::getenv(name.c_str());
        saved_.try_emplace(name, old ? std::optional<std::string>(old) : std::nullopt);
        value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }
    void unset(const std::string& name) { set(name, std::nullopt); }

private:
    std::map<std::string, std::optional<std::string>> saved_;
};

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        settings().clear();
        environment.set("QUERNSTEAD_ARCHIVE_DIR", vault().string());
        environment.set("QUERNSTEAD_CREDENTIALS_FILE", (dir.path() / "credentials.json").string());
    }
    void TearDown() override {
        settle(); // workers hold the store only weakly
        settings().clear();
    }

    static QSettings settings() {
        return QSettings(SettingsKeys::organisation, SettingsKeys::application);
    }
    std::filesystem::path vault() const { return dir.path() / "vault"; }

    static bool scan(AppStore& store) {
        QSignalSpy finished(&store, &AppStore::scanFinished);
        store.reloadArchive();
        return finished.wait(120'000);
    }
    static bool waitForOpen(AppStore& store, const std::string& path) {
        return QTest::qWaitFor(
            [&] { return store.openMessage() && store.openMessage()->record.path == path; },
            30'000);
    }
    static void settle() {
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::processEvents();
    }

    TemporaryDirectory dir;
    ScopedEnvironment environment;
};

// Only keeps a broken run from hanging.
constexpr int waitMilliseconds = 60'000;

inline bool waitFor(QSignalSpy& spy, int count = 1) {
    while (spy.count() < count)
        if (!spy.wait(waitMilliseconds))
            return false;
    return true;
}

inline MailAccount account(const std::string& label, const std::string& user,
                           const std::string& host = "127.0.0.1", uint16_t port = 993) {
    MailAccount a;
    a.id = UUID::random();
    a.label = label;
    a.username = user;
    a.server = {host, port, false};
    return a;
}

/// `date` in seconds since 1970, written in UTC.
inline std::string message(const std::string& subject, int64_t date,
                           const std::string& from = "Ann Archer <ann@example.org>") {
    const auto stamp = QDateTime::fromSecsSinceEpoch(date, Qt::UTC).toString(Qt::RFC2822Date);
    return "From: " + from + "\r\nTo: Bob <bob@example.net>\r\nSubject: " + subject +
           "\r\nDate: " + stamp.toStdString() + "\r\nMessage-ID: <" + std::to_string(date) + "." +
           std::to_string(subject.size()) + "@example.org>\r\n\r\nHello there.\r\n";
}

/// Far from any month's edge in every time zone.
inline int64_t midMonth(int year, int month) {
    return QDateTime(QDate(year, month, 15), QTime(0, 0), Qt::UTC).toSecsSinceEpoch();
}

inline void put(const std::filesystem::path& path, std::string_view bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

inline void setModificationTime(const std::filesystem::path& path, double seconds) {
    auto nanos = static_cast<int64_t>(seconds * 1e9);
    struct ::timespec times[2] = {
        {0, UTIME_OMIT},
        {static_cast<time_t>(nanos / 1'000'000'000), static_cast<long>(nanos % 1'000'000'000)}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

} // namespace qs::test
