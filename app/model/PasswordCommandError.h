#pragma once

#include <stdexcept>
#include <string>

namespace qs {

/// An account's password command gave no password: it couldn't be started, ended with a
/// failure status, or printed nothing. Carries the command and what went wrong, so that the
/// error can be worded for the user without losing either.
class PasswordCommandError : public std::runtime_error {
public:
    /// `detail` completes a sentence about the command: "exited with status 1: no such entry",
    /// "printed no password", "couldn’t be started: …".
    PasswordCommandError(std::string command, std::string detail)
        : std::runtime_error("“" + command + "” " + detail), command_(std::move(command)),
          detail_(std::move(detail)) {}

    const std::string& command() const { return command_; }
    const std::string& detail() const { return detail_; }

private:
    std::string command_;
    std::string detail_;
};

} // namespace qs
