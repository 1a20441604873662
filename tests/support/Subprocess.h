#pragma once

#include <string>
#include <vector>

namespace qs::test {

struct ProcessResult {
    int exitCode = -1;  ///< or 128 + the signal number when killed by one
    std::string output; ///< standard output and standard error, interleaved

    bool operator==(const ProcessResult&) const = default;
};

/// Runs `argv` (argv[0] looked up in PATH) to its end with `input` on its standard input, and
/// collects what it prints.
ProcessResult runProcess(const std::vector<std::string>& argv, const std::string& input = {});

/// The output; throws std::runtime_error with the command and its output unless it exits 0.
std::string runChecked(const std::vector<std::string>& argv, const std::string& input = {});

} // namespace qs::test
