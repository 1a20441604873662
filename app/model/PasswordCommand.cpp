#include "model/PasswordCommand.h"

#include "model/PasswordCommandError.h"

#include <glib.h>
#include <memory>
#include <sys/wait.h>

namespace qs::PasswordCommand {

namespace {

struct ErrorDeleter {
    void operator()(GError* error) const { g_error_free(error); }
};
struct StringsDeleter {
    void operator()(gchar** strings) const { g_strfreev(strings); }
};
struct TextDeleter {
    void operator()(gchar* text) const { g_free(text); }
};

std::string firstLine(const char* text) {
    std::string line = text ? text : "";
    line = line.substr(0, line.find('\n'));
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

} // namespace

std::string run(const std::string& command) {
    gchar** words = nullptr;
    GError* error = nullptr;
    if (!g_shell_parse_argv(command.c_str(), nullptr, &words, &error)) {
        std::unique_ptr<GError, ErrorDeleter> owned(error);
        throw PasswordCommandError(command, std::string("couldn’t be read: ") +
                                                (error ? error->message : ""));
    }
    std::unique_ptr<gchar*, StringsDeleter> argv(words);
    gchar* out = nullptr;
    int status = 0;
    // Standard error is left to the command: a password manager's own words reach the user.
    gboolean started =
        g_spawn_sync(nullptr, argv.get(), nullptr,
                     static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_CHILD_INHERITS_STDIN),
                     nullptr, nullptr, &out, nullptr, &status, &error);
    std::unique_ptr<gchar, TextDeleter> output(out);
    std::unique_ptr<GError, ErrorDeleter> owned(error);
    if (!started) {
        throw PasswordCommandError(command, std::string("couldn’t be started: ") +
                                                (error ? error->message : ""));
    }
    if (WIFSIGNALED(status)) {
        throw PasswordCommandError(command,
                                   "was ended by signal " + std::to_string(WTERMSIG(status)));
    }
    if (WEXITSTATUS(status) != 0) {
        throw PasswordCommandError(command,
                                   "exited with status " + std::to_string(WEXITSTATUS(status)));
    }
    std::string password = firstLine(out);
    if (password.empty()) {
        throw PasswordCommandError(command, "printed no password");
    }
    return password;
}

} // namespace qs::PasswordCommand
