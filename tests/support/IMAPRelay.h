#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace qs::test {

/// A plain TCP relay on 127.0.0.1 in front of a real IMAP server's plain port. It passes every
/// byte through unchanged, except that it can stop one chosen client command on its way: hold
/// it until the test lets it go, or cut the connection instead of passing it on. That makes a
/// real server stop at an exact point of a conversation, which no timing could (the scripted
/// fake server is for exchanges whose every line a test writes; this keeps the real server).
///
/// A command is recognised by the words after its tag ("UID EXPUNGE" matches
/// "M0009 UID EXPUNGE 1:200"); occurrences are counted over all connections from the moment of
/// `arm`. Client lines are matched whole, so a command must not carry its name in a literal.
///
///     IMAPRelay relay(dovecot.imapPort());
///     relay.arm("UID EXPUNGE", 1, IMAPRelay::Action::hold);
///     ... start the client on relay.port() ...
///     relay.waitUntilStopped(10s);   // the client now waits on the held command
///     ... act while the client is mid-command ...
///     relay.letGo();
class IMAPRelay {
public:
    enum class Action {
        /// Keep the command back until `letGo`.
        hold,
        /// Close both sides of that connection; the server never sees the command.
        cut,
    };

    /// Listens on a free port; throws std::runtime_error when it can't.
    explicit IMAPRelay(uint16_t serverPort);
    /// Closes every connection and lets a held command go nowhere.
    ~IMAPRelay();

    IMAPRelay(const IMAPRelay&) = delete;
    IMAPRelay& operator=(const IMAPRelay&) = delete;

    uint16_t port() const { return port_; }

    /// Stops the `occurrence`-th (1-based) client command named `command` from now on. Replaces
    /// an earlier arming.
    void arm(std::string command, int occurrence, Action action);
    /// Waits until the armed command arrived and was held or cut; false after `limit`.
    bool waitUntilStopped(std::chrono::milliseconds limit);
    /// Passes a held command on to the server.
    void letGo();

private:
    void acceptLoop();
    void relay(int client);
    /// Whether `line` is the armed command; counts it.
    bool matches(const std::string& line);

    uint16_t serverPort_;
    uint16_t port_ = 0;
    int listener_ = -1;
    /// Written to once at destruction, to wake every poll.
    int wake_[2] = {-1, -1};

    std::mutex lock_;
    std::condition_variable changed_;
    std::string command_;
    int occurrence_ = 0;
    int seen_ = 0;
    Action action_ = Action::hold;
    bool stopped_ = false;
    bool letGo_ = false;
    bool closing_ = false;

    std::list<std::thread> connections_;
    std::thread acceptor_;
};

} // namespace qs::test
