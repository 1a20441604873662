#include "imap/Transport.h"

#include "imap/PlainTransport.h"
#include "imap/Socket.h"
#include "imap/TLSTransport.h"
#include "vault/IMAPServer.h"

namespace qs {

std::unique_ptr<Transport> Transport::open(const IMAPServer& server, bool plain,
                                           std::chrono::milliseconds timeout,
                                           std::stop_token stop) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_ptr<Socket> socket = Socket::connect(server.host, server.port, timeout, stop);
    if (plain) {
        return std::make_unique<PlainTransport>(std::move(socket));
    }
    // The handshake gets what is left of the same limit: "ready within timeout" covers both.
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    return std::make_unique<TLSTransport>(server.host, std::move(socket),
                                          std::max(left, std::chrono::milliseconds(1)));
}

} // namespace qs
