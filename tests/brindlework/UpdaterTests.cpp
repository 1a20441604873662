// The updater against a local HTTPS server whose certificate the test CA signs, and the script
// that swaps the installed program folder for the staged one.

#include "Brindle/AppBundle.h"
#include "Brindle/InstallScript.h"
#include "ReleaseMaker.h"
#include "SigningKey.h"
#include "Updater/Updater.h"
#include "support/FileIO.h"
#include "support/HTTPSServer.h"
#include "support/QtTestEnvironment.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

#include <QCoreApplication>
#include <QSettings>
#include <QSignalSpy>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTest>
#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <fstream>
#include <functional>
#include <memory>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace brindle {

namespace {

using qs::test::HTTPSServer;
namespace fs = std::filesystem;
using Kind = UpdatePhase::Kind;

class TrustTestCA : public ::testing::Environment {
public:
    void SetUp() override {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setCaCertificates(QSslCertificate::fromPath(
            QString::fromStdString(qs::test::trustedCA().certificate.string())));
        QSslConfiguration::setDefaultConfiguration(configuration);
    }
};

[[maybe_unused]] const auto* application = ::testing::AddGlobalTestEnvironment(
    new qs::test::QtTestEnvironment<QCoreApplication>("test_brindlework", false));
[[maybe_unused]] const auto* trust = ::testing::AddGlobalTestEnvironment(new TrustTestCA);

void writeFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

// A scratch folder holding an installed program folder "opt/App" whose bin/app says `version`.
struct ScratchBundle {
    explicit ScratchBundle(const std::string& version) { writeProgram(installed, version); }

    // A program folder at `folder`: an executable bin/app that prints `version`, and a data file.
    static void writeProgram(const fs::path& folder, const std::string& version,
                             const std::string& payload = "data") {
        fs::remove_all(folder);
        writeFile(folder / "bin/app", "#!/bin/sh\necho " + version + "\n");
        fs::permissions(folder / "bin/app", fs::perms::owner_all);
        writeFile(folder / "share/data.txt", payload);
    }
    std::string program() const { return qs::FileIO::read(installed / "bin/app"); }

    qs::test::TemporaryDirectory directory;
    const fs::path root = directory.path();
    const fs::path installed = root / "opt/App";
};

constexpr auto identifier = "org.example.app";

const SigningKey& releaseKey() {
    static const SigningKey key = SigningKey::generate();
    return key;
}

// A program folder of the given version, sealed with the release key.
fs::path makeProgram(const fs::path& folder, const std::string& version,
                     const std::string& id = identifier, const std::string& payload = "data") {
    ScratchBundle::writeProgram(folder, version, payload);
    ReleaseMaker::seal(AppBundle{folder, id, version, "App", "bin/app"}, releaseKey());
    return folder;
}

class UpdaterTest : public ::testing::Test {
protected:
    void SetUp() override {
        QSettings().clear();
        installed_ = AppBundle::open(makeProgram(bundle_.installed, "1.0"));
    }

    UpdaterConfiguration configuration() const {
        const QUrl feed(QString::fromStdString(server_.url("/feed.json")));
        return {feed,       releaseKey().publicKey(), "1.0",    "App",
                installed_, bundle_.root / "cache",   {6, 1, 0}};
    }

    // Publishes `zip` as version `version`; `length` and `signature` default to the true ones.
    void publish(const std::string& version, const std::string& zip,
                 std::optional<int64_t> length = std::nullopt,
                 std::optional<std::string> signature = std::nullopt,
                 std::optional<size_t> holdAfter = std::nullopt, int status = 200) {
        server_.route("/App.zip", {status, zip, holdAfter});
        server_.route("/feed.json",
                      {200,
                       R"({"version":")" + version + R"(","url":"https://example.org/app",)" +
                           R"("notes":"Faster.","download":{"url":")" + server_.url("/App.zip") +
                           R"(","length":)" + std::to_string(length.value_or(zip.size())) +
                           R"(,"edSignature":")" + signature.value_or(releaseKey().sign(zip)) +
                           R"("}})",
                       {}});
    }

    std::string releaseArchive(const std::string& version, const std::string& id = identifier,
                               const std::function<void(const fs::path&)>& afterSeal = {}) {
        const fs::path folder = makeProgram(bundle_.root / "release/App", version, id);
        if (afterSeal)
            afterSeal(folder);
        return ReleaseMaker::zipFolder(folder);
    }

    // Runs one check and waits for it to settle anywhere but checking and downloading.
    void checkAndSettle(Updater& updater, bool userInitiated) {
        updater.check(userInitiated);
        const auto settled = [&] {
            return updater.phase().kind != Kind::checking &&
                   updater.phase().kind != Kind::downloading;
        };
        EXPECT_TRUE(QTest::qWaitFor(settled, 15'000));
    }

    ScratchBundle bundle_{"1.0"};
    HTTPSServer server_;
    std::optional<AppBundle> installed_;
};

TEST_F(UpdaterTest, FeedOutcomesForSilentAndUserChecks) {
    const std::string newer = R"({"version":"2.0","url":"https://example.org/app"})";
    const std::string needsNewerSystem =
        R"({"version":"2.0","url":"https://example.org/app","minimumSystemVersion":"6.2"})";
    const std::string same = R"({"version":"1.0","url":"https://example.org/app"})";
    const char* couldnt =
        "Couldn’t check for updates. Check your internet connection and try again.";
    using Response = HTTPSServer::Response;
    const struct {
        const char* name;
        std::optional<Response> feed; // none: no route, so 404
        bool reachable, userInitiated;
        Kind kind;
        const char* message;
        int windows;
    } rows[] = {
        // clang-format off
        {"feed missing, user", std::nullopt, true, true, Kind::failed, couldnt, 1},
        {"unreachable, silent", std::nullopt, false, false, Kind::idle, "", 0},
        {"server error, silent", Response{500, newer, {}}, true, false, Kind::idle, "", 0},
        {"garbage, user", Response{200, "<html>", {}}, true, true, Kind::failed, couldnt, 1},
        {"newer, user", Response{200, newer, {}}, true, true, Kind::available, "", 1},
        {"newer but needs a newer system", Response{200, needsNewerSystem, {}}, true, true, Kind::upToDate, "", 1},
        {"same version, silent", Response{200, same, {}}, true, false, Kind::upToDate, "", 0},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        QSettings().clear();
        auto server = std::make_unique<HTTPSServer>();
        if (row.feed)
            server->route("/feed.json", *row.feed);
        UpdaterConfiguration setup = configuration();
        setup.feedURL = QUrl(QString::fromStdString(server->url("/feed.json")));
        if (!row.reachable)
            server.reset();
        Updater updater(setup);
        QSignalSpy windows(&updater, &Updater::windowRequested);
        checkAndSettle(updater, row.userInitiated);
        EXPECT_EQ(updater.phase().kind, row.kind);
        EXPECT_EQ(updater.phase().message, row.message);
        EXPECT_EQ(windows.count(), row.windows);
        EXPECT_EQ(updater.lastChecked().has_value(),
                  row.kind == Kind::available || row.kind == Kind::upToDate);
        if (server) {
            ASSERT_EQ(server->requests().size(), 1u);
            EXPECT_EQ(server->requests()[0].headers["user-agent"], "App/1.0");
        }
    }
}

TEST_F(UpdaterTest, AVersionAnnouncesItselfOnceAndWithoutAFeedNothingHappens) {
    server_.route("/feed.json", {200, R"({"version":"2.0","url":"https://example.org/app"})", {}});
    Updater updater(configuration());
    QSignalSpy windows(&updater, &Updater::windowRequested);
    checkAndSettle(updater, false);
    checkAndSettle(updater, false);
    EXPECT_EQ(updater.phase().kind, Kind::available);
    EXPECT_EQ(windows.count(), 1);
    UpdaterConfiguration setup = configuration();
    setup.feedURL = QUrl();
    Updater unfed(setup);
    QSignalSpy phases(&unfed, &Updater::phaseChanged);
    unfed.start();
    unfed.check(true);
    EXPECT_FALSE(unfed.active());
    EXPECT_EQ(phases.count(), 0);
    EXPECT_EQ(server_.requests().size(), 2u);
}

TEST_F(UpdaterTest, ArchiveOutcomes) {
    const std::string good = releaseArchive("2.0");
    const auto notAProgram = ReleaseMaker::zip({{"README.txt", "hello", false, 0644}});
    const auto escaping = ReleaseMaker::zip(
        {{"App/", "", true, 0755}, {"App/../../escaped.txt", "out", false, 0644}});
    const auto throughALink =
        ReleaseMaker::zip({{"App/", "", true, 0755},
                           {"App/lib", "", false, 0777, bundle_.root.string()},
                           {"App/lib/escaped.txt", "out", false, 0644}});
    auto changed = [](const char* file, const char* text) {
        return [=](const fs::path& folder) {
            writeFile(folder / file, text);
        };
    };
    const int64_t size = int64_t(good.size());
    const char* damaged = "The downloaded app’s code signature is damaged.";
    const char* mismatch = "The downloaded update didn’t match this app.";
    const struct {
        const char* name;
        std::string zip;
        std::optional<int64_t> length;
        std::optional<std::string> signature;
        int status;
        const char* message; // empty: ready
    } rows[] = {
        // clang-format off
        {"good", good, {}, {}, 200, ""},
        {"one byte more than announced", good, size - 1, {}, 200, "The download was larger than expected."},
        {"one byte less than announced", good, size + 1, {}, 200, "The download was incomplete."},
        {"not found", good, {}, {}, 404, "The update file couldn’t be downloaded."},
        {"wrong signature", good, {}, releaseKey().sign("something else"), 200, "The update’s signature didn’t match, so it wasn’t installed."},
        {"no program inside", notAProgram, {}, {}, 200, "The update didn’t contain an app."},
        {"wrong identifier", releaseArchive("2.0", "org.example.other"), {}, {}, 200, mismatch},
        {"wrong version", releaseArchive("1.9"), {}, {}, 200, mismatch},
        {"a listed file changed after sealing", releaseArchive("2.0", identifier, changed("share/data.txt", "date")), {}, {}, 200, damaged},
        {"a file added after sealing", releaseArchive("2.0", identifier, changed("bin/extra", "x")), {}, {}, 200, damaged},
        {"an entry climbing out with ../", escaping, {}, {}, 200, "unzip failed"},
        {"an entry written through a link", throughALink, {}, {}, 200, "unzip failed"},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        publish("2.0", row.zip, row.length, row.signature, {}, row.status);
        Updater updater(configuration());
        checkAndSettle(updater, false);
        if (*row.message) {
            EXPECT_EQ(updater.phase(), UpdatePhase::failed(row.message));
            EXPECT_FALSE(updater.stagedApp());
        } else {
            ASSERT_EQ(updater.phase().kind, Kind::ready) << updater.phase().message;
            ASSERT_TRUE(updater.stagedApp());
            EXPECT_EQ(AppBundle::open(*updater.stagedApp())->version, "2.0");
            EXPECT_EQ(*updater.stagedApp(),
                      bundle_.root / "cache" / identifier / "BrindleUpdate/2.0/App");
        }
    }
    for (const auto& entry : fs::recursive_directory_iterator(bundle_.root))
        EXPECT_NE(entry.path().filename(), "escaped.txt") << entry.path();
}

TEST_F(UpdaterTest, AUserCheckDuringADownloadOnlyBringsTheWindowForward) {
    // Large enough for progress reports: they come after every 262,144 bytes.
    std::string noise(700'000, '\0');
    ASSERT_EQ(RAND_bytes(reinterpret_cast<unsigned char*>(noise.data()), int(noise.size())), 1);
    const std::string zip = ReleaseMaker::zipFolder(
        makeProgram(bundle_.root / "release/App", "2.0", identifier, noise));
    publish("2.0", zip, {}, {}, 400'000);
    Updater updater(configuration());
    QSignalSpy windows(&updater, &Updater::windowRequested);
    updater.check(false);
    ASSERT_TRUE(QTest::qWaitFor([&] { return updater.phase().progress > 0; }, 15'000));
    EXPECT_EQ(updater.phase().kind, Kind::downloading);
    EXPECT_LT(updater.phase().progress, 1.0);
    updater.check(true);
    EXPECT_EQ(windows.count(), 1);
    EXPECT_EQ(updater.phase().kind, Kind::downloading);
    EXPECT_EQ(server_.requests().size(), 2u); // the feed and the archive, nothing more
    server_.release();
    ASSERT_TRUE(QTest::qWaitFor([&] { return updater.phase().kind == Kind::ready; }, 15'000))
        << updater.phase().message;
    EXPECT_EQ(windows.count(), 2); // the ready version announces itself
}

TEST_F(UpdaterTest, ANewerVersionInstallsInPlaceOnlyWhereItCanElseIsOnlyAvailable) {
    const struct {
        const char* name;
        bool automatic;
        bool bundle;
        QStringList buttons;
    } rows[] = {
        {"automatic downloads off", false, true, {"later", "downloadAndInstall"}},
        {"no bundle of its own", true, false, {"later", "openDownloadPage"}},
    };
    publish("2.0", releaseArchive("2.0"));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        UpdaterConfiguration setup = configuration();
        if (!row.bundle)
            setup.bundle.reset();
        Updater updater(setup);
        updater.setAutomaticallyDownloads(row.automatic);
        checkAndSettle(updater, true);
        EXPECT_EQ(updater.phase().kind, Kind::available);
        EXPECT_EQ(updater.buttons(), row.buttons);
    }
    EXPECT_EQ(QSettings().value("BrindleAutoUpdate").toBool(), true); // the last row's setting

    // Quitting with a ready update installs it only where it could be installed in place.
    Updater updater(configuration());
    EXPECT_TRUE(updater.automaticallyDownloads());
    checkAndSettle(updater, false);
    ASSERT_EQ(updater.phase().kind, Kind::ready) << updater.phase().message;
    const fs::path bundle = installed_->path, parent = bundle.parent_path();
    const struct {
        const char* name;
        fs::path readOnly;
        bool canInstall;
    } places[] = {
        {"writable bundle and folder", {}, true},
        {"read-only bundle", bundle, false},
        {"read-only folder", parent, false},
    };
    for (const auto& row : places) {
        SCOPED_TRACE(row.name);
        if (!row.readOnly.empty())
            fs::permissions(row.readOnly, fs::perms::owner_read | fs::perms::owner_exec);
        EXPECT_EQ(updater.canInstallInPlace(), row.canInstall);
        EXPECT_TRUE(row.canInstall || !updater.installOnQuit()); // the writable row's is not run
        fs::permissions(bundle, fs::perms::owner_all);
        fs::permissions(parent, fs::perms::owner_all);
    }
    EXPECT_EQ(bundle_.program(), "#!/bin/sh\necho 1.0\n");
}

// A process that runs `command` in the shell and is reaped as soon as it ends, so that the
// script's `kill -0` sees it gone at once.
class Waiter {
public:
    explicit Waiter(const std::string& command) {
        pid_ = ::fork();
        if (pid_ == 0) {
            ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            ::_exit(127);
        }
        reaper_ = std::thread([pid = pid_] { ::waitpid(pid, nullptr, 0); });
    }
    ~Waiter() { reaper_.join(); }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    std::thread reaper_;
};

TEST(InstallScript, ReplacesTheBundleOnlyWhenTheCopySucceedsAndTheProgramHasEnded) {
    const struct {
        const char* name;
        bool staged;
        bool relaunch;
        // The program still writes into the staged copy as it ends: a script that didn't wait
        // for it would copy the staged program without this line.
        bool lateWriter;
        const char* installedProgram;
    } rows[] = {
        {"staged copy replaces the old", true, false, false, "new\n"},
        {"a failing copy restores the old", false, false, false, "old\n"},
        {"relaunch starts the new program", true, true, false, "new\n"},
        {"waits for the program to end", true, false, true, "new\nlate\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScratchBundle bundle("old");
        writeFile(bundle.installed / "share/old-only", "old");
        const fs::path versionFolder = bundle.root / "cache/BrindleUpdate/2.0";
        const fs::path staged = versionFolder / "App", started = bundle.root / "started";
        fs::create_directories(versionFolder);
        if (row.staged) {
            ScratchBundle::writeProgram(staged, "new");
            writeFile(staged / "bin/run", "#!/bin/sh\necho \"$0\" > '" + started.string() + "'\n");
            fs::permissions(staged / "bin/run", fs::perms::owner_all);
        }
        std::unique_ptr<Waiter> lateWriter;
        pid_t pid;
        if (row.lateWriter) {
            lateWriter = std::make_unique<Waiter>("sleep 0.5; echo late >> '" +
                                                  (staged / "bin/app").string() + "'");
            pid = lateWriter->pid();
        } else {
            pid = Waiter("exit 0").pid(); // gone, and reaped, before the script starts
        }
        std::vector<std::string> argv{"/bin/sh"};
        for (auto& argument : InstallScript::arguments(
                 pid, staged.string(), bundle.installed.string(), row.relaunch, "bin/run"))
            argv.push_back(argument);
        EXPECT_EQ(qs::test::runProcess(argv).exitCode, 0);
        EXPECT_EQ(bundle.program(), std::string("#!/bin/sh\necho ") + row.installedProgram);
        EXPECT_EQ(fs::exists(bundle.installed / "share/old-only"), !row.staged);
        EXPECT_FALSE(fs::exists(bundle.installed.string() + ".brindle-old"));
        EXPECT_FALSE(fs::exists(versionFolder));
        if (row.relaunch)
            EXPECT_TRUE(QTest::qWaitFor([&] { return fs::exists(started); }, 10'000));
        else
            EXPECT_FALSE(fs::exists(started));
    }
}

} // namespace
} // namespace brindle
