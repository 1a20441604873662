#include "imap/PlainTransport.h"

#include "imap/IMAPError.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace qs {

namespace {

IMAPError notConnected() {
    return IMAPError::connectionFailed(std::strerror(ENOTCONN));
}

} // namespace

PlainTransport::PlainTransport(std::unique_ptr<Socket> socket) : socket_(std::move(socket)) {}

void PlainTransport::send(std::string_view bytes) {
    while (!bytes.empty()) {
        if (socket_->fd() < 0) {
            throw notConnected();
        }
        ssize_t sent = ::send(socket_->fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            socket_->wait(POLLOUT, std::chrono::milliseconds(-1));
            continue;
        }
        if (sent < 0) {
            throw IMAPError::connectionFailed(std::strerror(errno));
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
}

std::size_t PlainTransport::receive(std::span<char> into, std::chrono::milliseconds timeout) {
    for (;;) {
        if (socket_->fd() < 0) {
            throw notConnected();
        }
        ssize_t count = ::recv(socket_->fd(), into.data(), into.size(), 0);
        if (count > 0) {
            return static_cast<std::size_t>(count);
        }
        if (count == 0) {
            throw IMAPError::closed();
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
            throw IMAPError::connectionFailed(std::strerror(errno));
        }
        if (!socket_->wait(POLLIN, timeout)) {
            close();
            throw IMAPError::timeout();
        }
    }
}

void PlainTransport::close() {
    socket_->close();
}

} // namespace qs
