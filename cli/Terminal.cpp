#include "Terminal.h"

#include <iostream>
#include <termios.h>
#include <unistd.h>

namespace qs::cli {

namespace {

bool quiet = false;

// A stream without a buffer swallows what it is given.
std::ostream nowhere(nullptr);

} // namespace

void beQuiet() {
    quiet = true;
    std::cout.rdbuf(nullptr);
}

std::ostream& notes() {
    return quiet ? nowhere : std::cerr;
}

bool stdoutIsTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

std::optional<std::string> readLine() {
    std::string line;
    if (!std::getline(std::cin, line))
        return std::nullopt;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

std::optional<std::string> readSecret(const std::string& prompt) {
    std::cerr << prompt << std::flush;
    termios saved{};
    bool terminal = ::isatty(STDIN_FILENO) == 1 && ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::optional<std::string> line = readLine();
    if (terminal) {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::cerr << "\n";
    }
    return line;
}

} // namespace qs::cli
