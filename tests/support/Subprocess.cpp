#include "support/Subprocess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace qs::test {

ProcessResult runProcess(const std::vector<std::string>& argv, const std::string& input) {
    // A child that exits before reading all its input must not kill the test program.
    [[maybe_unused]] static const auto ignored = ::signal(SIGPIPE, SIG_IGN);
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    pid_t pid = ::fork();
    if (pid < 0)
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (pid == 0) {
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::dup2(out[1], 2);
        ::execvp(args[0], args.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);

    // Fed from a thread of its own, so that neither side can block the other.
    std::thread feeder([&, fd = in[1]] {
        for (size_t written = 0; written < input.size();) {
            ssize_t n = ::write(fd, input.data() + written, input.size() - written);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            written += size_t(n);
        }
        ::close(fd);
    });
    ProcessResult result;
    char chunk[65536];
    for (ssize_t n; (n = ::read(out[0], chunk, sizeof chunk)) != 0;) {
        if (n < 0 && errno != EINTR)
            break;
        result.output.append(chunk, size_t(std::max<ssize_t>(n, 0)));
    }
    feeder.join();
    ::close(out[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

std::string runChecked(const std::vector<std::string>& argv, const std::string& input) {
    ProcessResult result = runProcess(argv, input);
    if (result.exitCode != 0) {
        std::string command;
        for (const std::string& arg : argv)
            command += arg + " ";
        throw std::runtime_error(command + "exited with " + std::to_string(result.exitCode) + ": " +
                                 result.output);
    }
    return result.output;
}

} // namespace qs::test
