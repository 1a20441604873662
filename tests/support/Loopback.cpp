#include "support/Loopback.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace qs::test::Loopback {

namespace {

sockaddr_in address(std::uint16_t port) {
    return {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
}

} // namespace

int listen(std::uint16_t& port, int backlog, std::string_view who) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in where = address(0);
    socklen_t length = sizeof where;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&where), length) != 0 ||
        (backlog > 0 && ::listen(fd, backlog) != 0) ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&where), &length) != 0)
        throw std::runtime_error(std::string(who) + ": cannot listen: " + std::strerror(errno));
    port = ntohs(where.sin_port);
    return fd;
}

int connect(std::uint16_t port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in where = address(port);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&where), sizeof where) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

std::uint16_t freePort() {
    std::uint16_t port = 0;
    ::close(listen(port, 0, "freePort"));
    return port;
}

bool sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

Listener::Listener(std::string_view who, std::function<void(int)> serve) {
    if (::pipe2(wake_, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string(who) + ": pipe: " + std::strerror(errno));
    fd_ = listen(port_, 16, who);
    thread_ = std::thread([this, serve = std::move(serve)] {
        while (wait({fd_}) == 0)
            if (int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC); client >= 0)
                serve(client);
    });
}

Listener::~Listener() {
    stop();
    ::close(fd_);
    ::close(wake_[0]);
    ::close(wake_[1]);
}

void Listener::stop() {
    if (!thread_.joinable())
        return;
    // Written once and never read, so that every wait returns from now on.
    [[maybe_unused]] ssize_t written = ::write(wake_[1], "x", 1);
    thread_.join();
}

int Listener::wait(std::initializer_list<int> fds, int milliseconds) const {
    std::vector<pollfd> polled{{wake_[0], POLLIN, 0}};
    for (int fd : fds)
        polled.push_back({fd, POLLIN, 0});
    int ready;
    while ((ready = ::poll(polled.data(), polled.size(), milliseconds)) < 0 && errno == EINTR) {
    }
    if (ready < 0 || polled[0].revents != 0)
        return stopped;
    for (size_t i = 1; i < polled.size(); ++i)
        if (polled[i].revents != 0)
            return static_cast<int>(i - 1);
    return timedOut;
}

} // namespace qs::test::Loopback
