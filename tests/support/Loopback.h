#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <thread>

namespace qs::test {

/// Plain TCP on 127.0.0.1 for the test servers, sockets close-on-exec.
namespace Loopback {

/// Listening on a free port, which `port` receives; throws std::runtime_error naming `who`.
int listen(std::uint16_t& port, int backlog, std::string_view who);
/// -1 when nothing accepts there.
int connect(std::uint16_t port);
/// A port that was free a moment ago.
std::uint16_t freePort();
/// False once the peer is gone.
bool sendAll(int fd, std::string_view bytes);

/// A thread that hands each connection on a free port to `serve`, one at a time (`serve` owns
/// the socket), until `stop`, which the owner calls before anything `serve` uses goes away.
class Listener {
public:
    Listener(std::string_view who, std::function<void(int)> serve);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::uint16_t port() const { return port_; }
    /// Wakes every `wait` for good.
    void stop();

    static constexpr int timedOut = -1;
    static constexpr int stopped = -2;
    /// The index of the first of `fds` that can be read (or has hung up), `timedOut` after
    /// `milliseconds` (-1: never) or `stopped`.
    int wait(std::initializer_list<int> fds, int milliseconds = -1) const;

private:
    int fd_ = -1;
    int wake_[2] = {-1, -1};
    std::uint16_t port_ = 0;
    std::thread thread_;
};

} // namespace Loopback

} // namespace qs::test
