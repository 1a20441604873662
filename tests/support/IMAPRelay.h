#pragma once

#include "support/Loopback.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace qs::test {

/// A plain TCP relay in front of a real IMAP server's plain port that can stop one chosen client
/// command, to stop a real server at an exact point of a conversation. A command is known by
/// the words after its tag ("UID EXPUNGE" matches "M9 UID EXPUNGE 1:5"), counted over all
/// connections from `arm` on.
class IMAPRelay {
public:
    /// `hold` until `letGo`; `cut` closes both sides, the server never sees the command.
    enum class Action { hold, cut };

    explicit IMAPRelay(uint16_t serverPort);
    ~IMAPRelay();

    IMAPRelay(const IMAPRelay&) = delete;
    IMAPRelay& operator=(const IMAPRelay&) = delete;

    uint16_t port() const { return listener_->port(); }

    /// Stops the `occurrence`-th (from 1) command named `command`, replacing an earlier arming.
    void arm(std::string command, int occurrence, Action action);
    bool waitUntilStopped(std::chrono::milliseconds limit);
    void letGo();

private:
    void relay(int client);
    bool matches(const std::string& line);

    uint16_t serverPort_;

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
    std::optional<Loopback::Listener> listener_;
};

} // namespace qs::test
