#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace qs::test {

/// One client command as the programmable fake hands it to its handler. Literals are already
/// taken in (the fake answers each `{n}` with a continuation by itself) and sit inline.
struct FakeIMAPCommand {
    std::string tag;
    /// The command word upper-cased; for UID commands both words: "UID FETCH".
    std::string name;
    /// What follows the name, as tokens: atoms as sent, quoted strings and literals as their
    /// bytes (unquoted), parenthesised lists as raw text including the parentheses.
    std::vector<std::string> arguments;
    /// The whole command as received, literals inline, without the final CR LF.
    std::string line;

    bool operator==(const FakeIMAPCommand&) const = default;
};

/// The server side of one accepted connection, for programmable handlers.
class FakeIMAPConnection {
public:
    /// Sends `line` followed by CR LF.
    void send(std::string_view line);
    /// Sends `bytes` exactly as given (for literals, partial lines, odd line ends).
    void sendRaw(std::string_view bytes);
    /// Closes the connection after the handler returns; the client sees end of stream.
    void close() { closeRequested_ = true; }
    bool closeRequested() const { return closeRequested_; }

private:
    friend class FakeIMAPServer;
    explicit FakeIMAPConnection(int fd) : fd_(fd) {}
    int fd_;
    bool closeRequested_ = false;
};

/// A fake IMAP server on 127.0.0.1 with an ephemeral port, plain TCP, on a thread of its own,
/// for tests that must drive the client through an exact exchange. It is not an IMAP server:
/// it knows nothing of the protocol beyond lines and `{n}` literals, and checks nothing but what
/// its scenario says. Everything the client sends is recorded for assertions.
///
/// Scripted mode: the scenario is text, one step per line, run in order on the first
/// connection (a line `---` starts the script of the next connection; connections beyond the
/// last script are closed at once):
///
///     # a comment; blank lines are ignored too
///     S: * OK [CAPABILITY IMAP4rev1] ready    server sends the text and CR LF
///     C: M0001 LOGIN "joe" "secret"           expects exactly this client line
///     C: * LIST "" "*"                        a tag of `*` accepts any tag ...
///     S: $TAG OK done                         ... and `$TAG` is the last tag the client used
///     B: * 1 FETCH (BODY[] {5}\r\nhel         sends bytes with no CR LF added; escapes \r \n
///                                             \t \\ \xHH (write \\Seen for \Seen here)
///     trickle 20: * OK slow                   sends the text and CR LF one byte every 20 ms
///     stall                                   stops reading and writing; the connection stays
///                                             open until the server is destroyed
///     X                                       closes the connection
///
/// A client line that ends in `{n}` followed by a server line starting with `+` makes the next
/// `C:` step take the literal: its n bytes plus the rest of the line up to the line end, as one
/// recorded line (so `C: pässword "x"` after `C: M0001 LOGIN {9}` and `S: + go`). Without the
/// `+` (a server that answers with a tagged NO instead) the next client line is read as a line.
///
/// A mismatch is recorded in `failures()` and closes the connection. After the last step the
/// fake keeps the connection open and reads on; a further client line counts as a failure
/// ("unexpected"), and the client closing is fine. Tests end with
/// `EXPECT_TRUE(server.waitUntilDone())`: the client may be done a moment before the fake is.
///
/// Programmable mode: every connection gets the greeting, then each complete client command
/// (literals answered with "+ go ahead" and inlined) goes to the handler, which answers through
/// the connection. A handler may keep state across commands and connections (see FakeMailbox).
/// Handlers run on the server thread, one at a time.
///
/// Destroying the server stops its thread at once, whatever it is doing (stalls included).
class FakeIMAPServer {
public:
    using Handler = std::function<void(FakeIMAPConnection&, const FakeIMAPCommand&)>;

    /// Scripted mode. Throws std::invalid_argument for a step it cannot read.
    explicit FakeIMAPServer(std::string_view scenario);
    /// Programmable mode: `greeting` (without CR LF) is sent on every new connection.
    FakeIMAPServer(std::string greeting, Handler handler);
    ~FakeIMAPServer();

    FakeIMAPServer(const FakeIMAPServer&) = delete;
    FakeIMAPServer& operator=(const FakeIMAPServer&) = delete;

    uint16_t port() const { return port_; }

    /// Every client line so far, in order, without line ends (see above for literals).
    std::vector<std::string> received() const;
    /// Scenario mismatches and protocol surprises, with the step's line number.
    std::vector<std::string> failures() const;
    /// Connections accepted so far.
    int connectionCount() const;
    /// True when every script has run to its end and nothing failed.
    bool ok() const;
    /// Blocks until every script has run to its end (or failed), at most `limit`. Returns ok().
    bool waitUntilDone(std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

    /// Tokenises a command line the way FakeIMAPCommand describes (exposed for handlers).
    static FakeIMAPCommand parseCommand(std::string line);

private:
    struct Step {
        enum class Kind { send, expect, stall, close, trickle };
        Kind kind;
        std::string text;
        int interval = 0;
        int lineNumber = 0;
    };

    class Reader;

    void serve();
    void runScript(int fd, const std::vector<Step>& steps);
    void runHandler(int fd);
    void record(std::string line);
    void fail(std::string message);
    bool pause(int milliseconds);
    bool sendAll(int fd, std::string_view bytes);

    std::vector<std::vector<Step>> scripts_;
    std::string greeting_;
    Handler handler_;
    int listenFd_ = -1;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
    uint16_t port_ = 0;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> received_;
    std::vector<std::string> failures_;
    int connections_ = 0;
    size_t scriptsDone_ = 0;

    std::thread thread_;
};

} // namespace qs::test
