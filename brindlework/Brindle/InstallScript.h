#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace brindle {

/// The small shell script that replaces the program after it has quit: it waits up to 60
/// seconds for the program's process to end, moves the old bundle aside, copies the new one in
/// its place (restoring the old one if the copy fails), removes the staged version folder and,
/// when asked, starts the new program. Its failures are silent: the old program stays.
namespace InstallScript {

std::string text();

/// The arguments for /bin/sh: "-c", the script, its name, then the process to wait for, the
/// staged bundle, the installed bundle, "1" to relaunch or "0", and the program inside the
/// bundle to start.
std::vector<std::string> arguments(pid_t waitFor, const std::string& staged,
                                   const std::string& installed, bool relaunch,
                                   const std::string& executable);

} // namespace InstallScript

} // namespace brindle
