#include "imap/TLSTransport.h"

#include "imap/IMAPError.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

namespace qs {

namespace {

using Link = TLSTransport::Link;

bool wouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

// A socket BIO that sends with MSG_NOSIGNAL: OpenSSL's own writes with write(), and a peer
// that went away would then kill the program with SIGPIPE.
int linkWrite(BIO* bio, const char* data, int length) {
    Link* link = static_cast<Link*>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    ssize_t sent = ::send(link->fd, data, static_cast<size_t>(length), MSG_NOSIGNAL);
    if (sent < 0) {
        link->error = errno;
        if (wouldBlock(errno)) {
            BIO_set_retry_write(bio);
        }
        return -1;
    }
    return static_cast<int>(sent);
}

int linkRead(BIO* bio, char* data, int length) {
    Link* link = static_cast<Link*>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    ssize_t count = ::recv(link->fd, data, static_cast<size_t>(length), 0);
    if (count < 0) {
        link->error = errno;
        if (wouldBlock(errno)) {
            BIO_set_retry_read(bio);
        }
        return -1;
    }
    return static_cast<int>(count);
}

long linkControl(BIO*, int command, long, void*) {
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

int linkCreate(BIO* bio) {
    BIO_set_init(bio, 1);
    return 1;
}

const BIO_METHOD* linkMethod() {
    static BIO_METHOD* method = [] {
        BIO_METHOD* made =
            BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "quernstead socket");
        BIO_meth_set_write(made, linkWrite);
        BIO_meth_set_read(made, linkRead);
        BIO_meth_set_ctrl(made, linkControl);
        BIO_meth_set_create(made, linkCreate);
        return made;
    }();
    return method;
}

// OpenSSL's reason for the failure, with the certificate check's verdict when there is one,
// e.g. "certificate verify failed (unable to get local issuer certificate)".
std::string failureText(SSL* ssl, int sslError, const Link& link) {
    std::string text;
    if (unsigned long code = ERR_peek_error(); code != 0) {
        const char* reason = ERR_reason_error_string(code);
        text = reason ? reason : "error " + std::to_string(ERR_GET_REASON(code));
    } else if (sslError == SSL_ERROR_SYSCALL && link.error != 0) {
        text = std::strerror(link.error);
    } else if (sslError == SSL_ERROR_SYSCALL || sslError == SSL_ERROR_ZERO_RETURN) {
        text = "the server closed the connection";
    } else {
        text = "error " + std::to_string(sslError);
    }
    if (long verdict = ssl ? SSL_get_verify_result(ssl) : X509_V_OK; verdict != X509_V_OK) {
        text += " (" + std::string(X509_verify_cert_error_string(verdict)) + ")";
    }
    ERR_clear_error();
    return text;
}

bool isAddress(const std::string& host) {
    unsigned char buffer[sizeof(in6_addr)];
    return ::inet_pton(AF_INET, host.c_str(), buffer) == 1 ||
           ::inet_pton(AF_INET6, host.c_str(), buffer) == 1;
}

} // namespace

TLSTransport::TLSTransport(const std::string& host, std::unique_ptr<Socket> socket,
                           std::chrono::milliseconds timeout)
    : socket_(std::move(socket)) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    link_.fd = socket_->fd();
    auto setupFailed = [&] {
        std::string text = failureText(ssl_.get(), SSL_ERROR_SSL, link_);
        return IMAPError::connectionFailed("TLS setup failed: " + text);
    };

    // A context per connection: it reads the trust store as it is now.
    context_.reset(SSL_CTX_new(TLS_client_method()));
    if (!context_ || SSL_CTX_set_min_proto_version(context_.get(), TLS1_2_VERSION) != 1 ||
        SSL_CTX_set_default_verify_paths(context_.get()) != 1) {
        throw setupFailed();
    }
    SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, nullptr);
    // A server that drops TCP without close_notify has closed, not attacked us: the IMAP
    // layer decides whether what arrived was complete.
    SSL_CTX_set_options(context_.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);

    ssl_.reset(SSL_new(context_.get()));
    if (!ssl_) {
        throw setupFailed();
    }
    if (isAddress(host)) {
        if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl_.get()), host.c_str()) != 1) {
            throw setupFailed();
        }
    } else if (SSL_set1_host(ssl_.get(), host.c_str()) != 1 ||
               SSL_set_tlsext_host_name(ssl_.get(), host.c_str()) != 1) {
        throw setupFailed();
    }
    BIO* bio = BIO_new(linkMethod());
    if (!bio) {
        throw setupFailed();
    }
    BIO_set_data(bio, &link_);
    SSL_set_bio(ssl_.get(), bio, bio);

    for (;;) {
        ERR_clear_error();
        link_.error = 0;
        int result = SSL_connect(ssl_.get());
        if (result == 1) {
            return;
        }
        int error = SSL_get_error(ssl_.get(), result);
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 ||
                !socket_->wait(error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, left)) {
                throw IMAPError::timeout();
            }
            continue;
        }
        throw IMAPError::connectionFailed("TLS handshake failed: " +
                                          failureText(ssl_.get(), error, link_));
    }
}

void TLSTransport::Free::operator()(SSL_CTX* context) const {
    SSL_CTX_free(context);
}

void TLSTransport::Free::operator()(SSL* ssl) const {
    SSL_free(ssl);
}

void TLSTransport::send(std::string_view bytes) {
    while (!bytes.empty()) {
        if (socket_->fd() < 0) {
            throw IMAPError::connectionFailed(std::strerror(ENOTCONN));
        }
        ERR_clear_error();
        link_.error = 0;
        size_t written = 0;
        int result = SSL_write_ex(ssl_.get(), bytes.data(), bytes.size(), &written);
        if (result == 1) {
            bytes.remove_prefix(written);
            continue;
        }
        int error = SSL_get_error(ssl_.get(), result);
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
            socket_->wait(error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT,
                          std::chrono::milliseconds(-1));
            continue;
        }
        throw IMAPError::connectionFailed(failureText(ssl_.get(), error, link_));
    }
}

std::size_t TLSTransport::receive(std::span<char> into, std::chrono::milliseconds timeout) {
    std::size_t maximum = into.size();
    for (;;) {
        if (socket_->fd() < 0) {
            throw IMAPError::connectionFailed(std::strerror(ENOTCONN));
        }
        ERR_clear_error();
        link_.error = 0;
        size_t count = 0;
        int result = SSL_read_ex(ssl_.get(), into.data(), maximum, &count);
        if (result == 1) {
            // One call yields one TLS record (16 KiB at most); take what else has already
            // arrived, so a large body reaches the reader in few, large chunks. A failure here
            // is left for the next call, after the data.
            size_t more = 0;
            while (count < maximum && (ERR_clear_error(), true) &&
                   SSL_read_ex(ssl_.get(), into.data() + count, maximum - count, &more) == 1) {
                count += more;
            }
            ERR_clear_error();
            return count;
        }
        int error = SSL_get_error(ssl_.get(), result);
        switch (error) {
        case SSL_ERROR_WANT_READ:
        case SSL_ERROR_WANT_WRITE:
            // Each wait is bounded by the silence limit, so a slow but steady server never
            // times out however long a response is.
            if (!socket_->wait(error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, timeout)) {
                close();
                throw IMAPError::timeout();
            }
            continue;
        case SSL_ERROR_ZERO_RETURN:
            ERR_clear_error();
            throw IMAPError::closed();
        case SSL_ERROR_SYSCALL:
            if (link_.error == 0 && ERR_peek_error() == 0) {
                throw IMAPError::closed();
            }
            [[fallthrough]];
        default:
            throw IMAPError::connectionFailed(failureText(ssl_.get(), error, link_));
        }
    }
}

void TLSTransport::close() {
    socket_->close();
    link_.fd = -1;
}

} // namespace qs
