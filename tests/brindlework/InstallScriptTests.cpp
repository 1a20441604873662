#include "Brindle/InstallScript.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"

#include <QTest>
#include <gtest/gtest.h>

#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace brindle {
namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
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

TEST(InstallScript, ReplacesTheBundleOnlyWhenTheCopySucceeds) {
    struct Row {
        const char* name;
        bool stagedExists;
        bool relaunch;
        const char* installedProgram; // what bin/app says afterwards
    };
    const Row rows[] = {
        {"staged copy replaces the old", true, false, "new"},
        {"a failing copy restores the old", false, false, "old"},
        {"relaunch starts the new program", true, true, "new"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        qs::test::TemporaryDirectory directory;
        const fs::path installed = directory.path() / "opt/App";
        const fs::path versionFolder = directory.path() / "cache/BrindleUpdate/2.0";
        const fs::path staged = versionFolder / "App";
        const fs::path started = directory.path() / "started";
        writeFile(installed / "bin/app", "old");
        writeFile(installed / "share/old-only", "old");
        fs::create_directories(versionFolder);
        if (row.stagedExists) {
            writeFile(staged / "bin/app", "new");
            writeFile(staged / "bin/run", "#!/bin/sh\necho \"$0\" > '" + started.string() + "'\n");
            fs::permissions(staged / "bin/run", fs::perms::owner_all);
        }
        // The program to wait for has already gone.
        const pid_t gone = [] {
            Waiter waiter("exit 0");
            return waiter.pid();
        }();

        std::vector<std::string> argv{"/bin/sh"};
        for (auto& argument : InstallScript::arguments(gone, staged.string(), installed.string(),
                                                       row.relaunch, "bin/run"))
            argv.push_back(argument);
        EXPECT_EQ(qs::test::runProcess(argv).exitCode, 0);

        EXPECT_EQ(readFile(installed / "bin/app"), row.installedProgram);
        EXPECT_EQ(fs::exists(installed / "share/old-only"), !row.stagedExists);
        EXPECT_FALSE(fs::exists(installed.string() + ".brindle-old"));
        EXPECT_FALSE(fs::exists(versionFolder));
        if (row.relaunch)
            EXPECT_TRUE(QTest::qWaitFor([&] { return fs::exists(started); }, 10'000));
        else
            EXPECT_FALSE(fs::exists(started));
    }
}

TEST(InstallScript, WaitsForTheProgramToEndBeforeCopying) {
    qs::test::TemporaryDirectory directory;
    const fs::path installed = directory.path() / "opt/App";
    const fs::path staged = directory.path() / "cache/2.0/App";
    writeFile(installed / "bin/app", "old");
    writeFile(staged / "bin/app", "new");
    // The program still writes into the staged copy as it ends; a script that didn't wait
    // would copy it without this line.
    Waiter program("sleep 0.5; echo late >> '" + (staged / "bin/app").string() + "'");

    std::vector<std::string> argv{"/bin/sh"};
    for (auto& argument : InstallScript::arguments(program.pid(), staged.string(),
                                                   installed.string(), false, "bin/app"))
        argv.push_back(argument);
    EXPECT_EQ(qs::test::runProcess(argv).exitCode, 0);
    EXPECT_EQ(readFile(installed / "bin/app"), "newlate\n");
}

} // namespace
} // namespace brindle
