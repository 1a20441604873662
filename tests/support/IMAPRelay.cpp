#include "support/IMAPRelay.h"

#include "support/Loopback.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace qs::test {

IMAPRelay::IMAPRelay(uint16_t serverPort) : serverPort_(serverPort) {
    if (::pipe2(wake_, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("IMAPRelay: ") + std::strerror(errno));
    }
    listener_ = Loopback::listen(port_, 16, "IMAPRelay");
    acceptor_ = std::thread([this] { acceptLoop(); });
}

IMAPRelay::~IMAPRelay() {
    {
        std::lock_guard guard(lock_);
        closing_ = true;
    }
    changed_.notify_all();
    // Written once and never read: it wakes every poll from now on.
    [[maybe_unused]] ssize_t written = ::write(wake_[1], "x", 1);
    acceptor_.join();
    for (std::thread& connection : connections_) {
        connection.join();
    }
    ::close(listener_);
    ::close(wake_[0]);
    ::close(wake_[1]);
}

void IMAPRelay::arm(std::string command, int occurrence, Action action) {
    std::lock_guard guard(lock_);
    command_ = std::move(command);
    occurrence_ = occurrence;
    action_ = action;
    seen_ = 0;
    stopped_ = false;
    letGo_ = false;
}

bool IMAPRelay::waitUntilStopped(std::chrono::milliseconds limit) {
    std::unique_lock guard(lock_);
    return changed_.wait_for(guard, limit, [this] { return stopped_; });
}

void IMAPRelay::letGo() {
    {
        std::lock_guard guard(lock_);
        letGo_ = true;
    }
    changed_.notify_all();
}

void IMAPRelay::acceptLoop() {
    for (;;) {
        pollfd fds[2] = {{listener_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (fds[1].revents != 0) {
            return;
        }
        int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) {
            // Only this thread adds to the list, and the destructor joins it first.
            connections_.emplace_back([this, client] { relay(client); });
        }
    }
}

// Whether `line` is the armed command; counts it.
bool IMAPRelay::matches(const std::string& line) {
    std::lock_guard guard(lock_);
    const size_t end = line.find(' ') + 1 + command_.size();
    return !command_.empty() && line.find(' ') != std::string::npos &&
           line.compare(end - command_.size(), command_.size(), command_) == 0 &&
           end < line.size() && std::strchr(" \r\n", line[end]) && ++seen_ == occurrence_;
}

void IMAPRelay::relay(int client) {
    int server = Loopback::connect(serverPort_);
    // Client bytes not yet forwarded: commands go on a whole line at a time.
    std::string pending;
    char buffer[65536];
    while (server >= 0) {
        pollfd fds[3] = {{client, POLLIN, 0}, {server, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (::poll(fds, 3, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        if (fds[2].revents != 0) {
            break;
        }
        if (fds[1].revents != 0) {
            ssize_t got = ::recv(server, buffer, sizeof buffer, 0);
            if (got <= 0 ||
                !Loopback::sendAll(client, std::string_view(buffer, static_cast<size_t>(got)))) {
                break;
            }
        }
        if (fds[0].revents == 0) {
            continue;
        }
        ssize_t got = ::recv(client, buffer, sizeof buffer, 0);
        if (got <= 0) {
            break;
        }
        pending.append(buffer, static_cast<size_t>(got));
        bool cut = false;
        for (size_t end = pending.find('\n'); end != std::string::npos && !cut;
             end = pending.find('\n')) {
            std::string line = pending.substr(0, end + 1);
            pending.erase(0, end + 1);
            if (matches(line)) {
                std::unique_lock guard(lock_);
                stopped_ = true;
                changed_.notify_all();
                if (action_ == Action::cut) {
                    cut = true;
                    break;
                }
                changed_.wait(guard, [this] { return letGo_ || closing_; });
                if (closing_) {
                    cut = true;
                    break;
                }
            }
            if (!Loopback::sendAll(server, line)) {
                cut = true;
            }
        }
        if (cut) {
            break;
        }
    }
    if (server >= 0) {
        ::close(server);
    }
    ::shutdown(client, SHUT_RDWR);
    ::close(client);
}

} // namespace qs::test
