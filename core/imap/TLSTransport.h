#pragma once

#include "imap/Socket.h"
#include "imap/Transport.h"

#include <openssl/types.h>

namespace qs {

/// TLS 1.2 or later over a connected socket, with OpenSSL: the default verify paths (the
/// system's trust store, or whatever SSL_CERT_FILE / SSL_CERT_DIR name), peer verification,
/// the certificate checked against the host name (or IP address), SNI for names. Socket I/O
/// goes through a BIO of its own that never raises SIGPIPE.
class TLSTransport : public Transport {
public:
    /// Runs the handshake within `timeout`. Throws IMAPError::connectionFailed whose text
    /// carries OpenSSL's reason and the certificate check's verdict, e.g. "TLS handshake
    /// failed: certificate verify failed (hostname mismatch)"; IMAPError::timeout;
    /// CancellationError.
    TLSTransport(const std::string& host, std::unique_ptr<Socket> socket,
                 std::chrono::milliseconds timeout);

    void send(std::string_view bytes) override;
    std::size_t receive(std::span<char> into, std::chrono::milliseconds timeout) override;
    void close() override;

    /// The state the socket BIO shares with the transport: the descriptor and the errno of
    /// the last failed system call, which OpenSSL doesn't keep.
    struct Link {
        int fd = -1;
        int error = 0;
    };

private:
    // Owned through deleters, so that a constructor that throws halfway frees what it made.
    struct Free {
        void operator()(SSL_CTX* context) const;
        void operator()(SSL* ssl) const;
    };

    Link link_;
    std::unique_ptr<Socket> socket_;
    std::unique_ptr<SSL_CTX, Free> context_;
    std::unique_ptr<SSL, Free> ssl_;
};

} // namespace qs
