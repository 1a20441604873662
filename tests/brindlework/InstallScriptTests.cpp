#include "Brindle/InstallScript.h"
#include "ScratchBundle.h"
#include "support/Subprocess.h"

#include <QTest>
#include <gtest/gtest.h>

#include <memory>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace brindle {
namespace {

namespace fs = std::filesystem;
using test::ScratchBundle;
using test::writeFile;

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
