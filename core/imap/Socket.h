#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace qs {

/// A connected, non-blocking TCP socket whose waits end at once when its stop token fires:
/// every wait also watches a wake-up descriptor that a std::stop_callback signals. The waits
/// are `poll()` with a limit, so a transport built on it can bound silence without timers.
class Socket {
public:
    /// Resolves `host` and connects to the first of its addresses that accepts, all within
    /// `timeout`, the lookup included. Throws IMAPError::connectionFailed with the system's text
    /// (gai_strerror, strerror: "Name or service not known", "Connection refused"),
    /// IMAPError::timeout when no address answered in time, CancellationError on a stop.
    static std::unique_ptr<Socket> connect(const std::string& host, uint16_t port,
                                           std::chrono::milliseconds timeout, std::stop_token stop);
    ~Socket();

    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// The descriptor; -1 after close().
    int fd() const { return fd_; }

    /// Waits until `events` (POLLIN, POLLOUT) are ready or the peer hung up. Returns false when
    /// `timeout` passed first (a negative timeout waits without limit). Throws
    /// CancellationError when a stop is requested, before or during the wait.
    bool wait(short events, std::chrono::milliseconds timeout);

    /// Closes the descriptor; later waits find nothing to wait on. Idempotent.
    void close();

private:
    struct Waker {
        int fd;
        void operator()() const noexcept;
    };

    Socket(int fd, std::stop_token stop);

    int fd_;
    int wake_;
    std::stop_token stop_;
    std::optional<std::stop_callback<Waker>> callback_;
};

} // namespace qs
