#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>

namespace qs {

struct IMAPServer;

/// The byte pipe under an IMAP session: TLS over TCP, or plain TCP for local development.
/// Blocking calls, each bounded; used by one thread at a time.
///
/// Failures are IMAPError values: `connectionFailed` carrying the system's or OpenSSL's own
/// text, `timeout`, `closed`; a stop requested through the token given at opening throws
/// CancellationError from whatever wait is running, at once.
class Transport {
public:
    virtual ~Transport() = default;

    /// Connects to `server` (host name or address, port) within `timeout`: TLS from the first
    /// byte, with the system's trust store and the certificate checked against the host name,
    /// or, when `plain`, bare TCP. The caller has decided whether plain is allowed.
    static std::unique_ptr<Transport> open(const IMAPServer& server, bool plain,
                                           std::chrono::milliseconds timeout, std::stop_token stop);

    /// Sends all of `bytes`. No time limit of its own (commands are small).
    virtual void send(std::string_view bytes) = 0;

    /// Waits for between 1 and `into.size()` (at least 1) bytes, writes them at the start of
    /// `into` and returns how many. `timeout` bounds the silence before any byte arrives; when
    /// it passes, the transport closes itself and throws IMAPError::timeout. The end of the
    /// stream throws IMAPError::closed.
    virtual std::size_t receive(std::span<char> into, std::chrono::milliseconds timeout) = 0;

    /// Closes the connection from this side, sending nothing. Idempotent. Later sends and
    /// receives fail with connectionFailed.
    virtual void close() = 0;
};

} // namespace qs
