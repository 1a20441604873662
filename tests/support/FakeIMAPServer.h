#pragma once

#include "support/Loopback.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qs::test {

/// One client command as the programmable fake hands it to its handler, literals inline.
struct FakeIMAPCommand {
    std::string tag;
    /// Upper-cased; for UID commands both words: "UID FETCH".
    std::string name;
    /// Atoms and lists as sent, quoted strings and literals as their bytes.
    std::vector<std::string> arguments;
    /// The whole command without the final CR LF.
    std::string line;
};

/// The server side of one accepted connection, for programmable handlers.
class FakeIMAPConnection {
public:
    void send(std::string_view line) { sendRaw(std::string(line) + "\r\n"); }
    void sendRaw(std::string_view bytes);
    /// Closes the connection after the handler returns.
    void close() { closeRequested_ = true; }
    bool closeRequested() const { return closeRequested_; }

private:
    friend class FakeIMAPServer;
    explicit FakeIMAPConnection(int fd) : fd_(fd) {}
    int fd_;
    bool closeRequested_ = false;
};

/// A fake IMAP server on 127.0.0.1, plain TCP, on a thread of its own. It knows nothing of IMAP
/// beyond lines and `{n}` literals; every client line is recorded.
///
/// Scripted mode: one step per line, run in order on the first connection; `---` starts the
/// script of the next connection (connections beyond the last script are closed at once):
///
///     S: * OK ready                   sends the text and CR LF
///     C: M0001 LOGIN "joe" "secret"   expects exactly this client line
///     B: * 1 FETCH (BODY[] {5}\r\nhel sends bytes as given; escapes \r \n and \\ only
///     trickle 20: * OK slow           sends the text and CR LF one byte every 20 ms
///     stall                           goes silent; the connection stays open
///     X                               closes the connection
///
/// A literal and the rest of its line are one `C:` line. A mismatch is recorded in `failures()`
/// and closes the connection, as does any client line after the last step.
///
/// Programmable mode: every connection gets the greeting, then each complete command (literals
/// answered with "+ go ahead") goes to the handler on the server thread (see FakeMailbox).
class FakeIMAPServer {
public:
    using Handler = std::function<void(FakeIMAPConnection&, const FakeIMAPCommand&)>;

    /// Scripted mode. Throws std::invalid_argument for a step it cannot read.
    explicit FakeIMAPServer(std::string_view scenario);
    /// Programmable mode: `greeting` (without CR LF) goes out on every new connection.
    FakeIMAPServer(std::string greeting, Handler handler);

    FakeIMAPServer(const FakeIMAPServer&) = delete;
    FakeIMAPServer& operator=(const FakeIMAPServer&) = delete;

    uint16_t port() const { return listener_->port(); }

    /// Every client line so far, without line ends.
    std::vector<std::string> received() const { return locked(received_); }
    std::vector<std::string> failures() const { return locked(failures_); }
    int connectionCount() const { return locked(connections_); }
    /// Waits until every script has run to its end (or failed), at most `limit`; true when all
    /// ran and nothing failed.
    bool waitUntilDone(std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

private:
    struct Step {
        char kind; // 'S'end, 'C' expect, 's'tall, 'X' close
        std::string text;
        int interval = 0; // a trickle's pause after each byte, in ms
        int lineNumber = 0;
    };

    template <typename T>
    T locked(const T& value) const {
        std::lock_guard lock(mutex_);
        return value;
    }
    void serve(int fd);
    void runScript(int fd, const std::vector<Step>& steps);
    void runHandler(int fd);
    void note(std::vector<std::string>& list, std::string line);

    std::vector<std::vector<Step>> scripts_;
    std::string greeting_;
    Handler handler_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> received_;
    std::vector<std::string> failures_;
    int connections_ = 0;
    size_t scriptsDone_ = 0;
    // Last: it stops first.
    std::optional<Loopback::Listener> listener_;
};

} // namespace qs::test
