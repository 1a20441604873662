#include "imap/Socket.h"

#include "imap/HostResolver.h"
#include "imap/IMAPError.h"
#include "support/Cancellation.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qs {

namespace {

std::string systemText(int error) {
    return std::strerror(error);
}

int remainingMilliseconds(std::chrono::steady_clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

} // namespace

void Socket::Waker::operator()() const noexcept {
    uint64_t one = 1;
    [[maybe_unused]] ssize_t ignored = ::write(fd, &one, sizeof one);
}

Socket::Socket(int fd, std::stop_token stop) : fd_(fd), stop_(std::move(stop)) {
    wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0) {
        int error = errno;
        ::close(fd_);
        throw IMAPError::connectionFailed(systemText(error));
    }
    // Fires at once, here, when the stop was requested already.
    callback_.emplace(stop_, Waker{wake_});
}

Socket::~Socket() {
    callback_.reset(); // waits for a callback running on another thread before wake_ goes
    close();
    ::close(wake_);
}

void Socket::close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool Socket::wait(short events, std::chrono::milliseconds timeout) {
    checkCancelled(stop_);
    pollfd fds[2] = {{fd_, events, 0}, {wake_, POLLIN, 0}};
    auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int limit = timeout.count() < 0 ? -1 : remainingMilliseconds(deadline);
        int ready = ::poll(fds, 2, limit);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0) {
            throw IMAPError::connectionFailed(systemText(errno));
        }
        if (fds[1].revents != 0) {
            throw CancellationError();
        }
        // A hang-up or an error counts as ready: the read or write that follows reports it.
        return ready > 0;
    }
}

std::unique_ptr<Socket> Socket::connect(const std::string& host, uint16_t port,
                                        std::chrono::milliseconds timeout, std::stop_token stop) {
    checkCancelled(stop);
    auto deadline = std::chrono::steady_clock::now() + timeout;
    auto addresses = HostResolver::resolve(host, port, deadline, stop);

    // Every address in turn, as a name may resolve to one that doesn't listen (::1 before
    // 127.0.0.1); the last failure is the one reported.
    std::string lastFailure = "no address";
    for (addrinfo* address = addresses.get(); address; address = address->ai_next) {
        int fd = ::socket(address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                          address->ai_protocol);
        if (fd < 0) {
            lastFailure = systemText(errno);
            continue;
        }
        auto socket = std::unique_ptr<Socket>(new Socket(fd, stop));
        if (::connect(fd, address->ai_addr, address->ai_addrlen) != 0) {
            if (errno != EINPROGRESS) {
                lastFailure = systemText(errno);
                continue;
            }
            if (!socket->wait(POLLOUT,
                              std::chrono::milliseconds(remainingMilliseconds(deadline)))) {
                throw IMAPError::timeout();
            }
            int error = 0;
            socklen_t length = sizeof error;
            ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
            if (error != 0) {
                lastFailure = systemText(error);
                continue;
            }
        }
        // Commands and literals go out in small pieces that wait on each other; holding them
        // back for coalescing (Nagle) would only add round trips.
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        return socket;
    }
    throw IMAPError::connectionFailed(lastFailure);
}

} // namespace qs
