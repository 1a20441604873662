#pragma once

#include "imap/Socket.h"
#include "imap/Transport.h"

namespace qs {

/// Bare TCP, for a developer's local server on 127.0.0.1 only (the session enforces that).
class PlainTransport : public Transport {
public:
    explicit PlainTransport(std::unique_ptr<Socket> socket);

    void send(std::string_view bytes) override;
    std::size_t receive(std::span<char> into, std::chrono::milliseconds timeout) override;
    void close() override;

private:
    std::unique_ptr<Socket> socket_;
};

} // namespace qs
