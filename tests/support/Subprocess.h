#pragma once

#include <string>
#include <vector>

namespace qs::test {

/// The outcome of a finished child process.
struct ProcessResult {
    int exitCode = -1;  ///< the exit status, or 128 + signal number when killed by a signal
    std::string output; ///< standard output and standard error, interleaved as written

    bool operator==(const ProcessResult&) const = default;
};

/// Runs `argv` (argv[0] looked up in PATH) to its end with `input` on its standard input, and
/// collects what it prints. Throws std::runtime_error when the program cannot be started.
/// The first call sets SIGPIPE to be ignored in the test program, so that a child that exits
/// before reading all its input can't kill it.
ProcessResult runProcess(const std::vector<std::string>& argv, const std::string& input = {});

/// As runProcess, but throws std::runtime_error carrying the command and its output when the
/// exit code is not 0. Returns the output.
std::string runChecked(const std::vector<std::string>& argv, const std::string& input = {});

} // namespace qs::test
