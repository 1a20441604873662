#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <netdb.h>
#include <stop_token>
#include <string>

namespace qs {

/// Name lookup that ends at a deadline or a stop. getaddrinfo itself can't be interrupted (an
/// unreachable name server holds it for many seconds), so it runs on a thread of its own and
/// the caller waits for whichever comes first: its answer, the deadline or the stop. A lookup
/// given up on finishes unseen and frees what it found.
class HostResolver {
public:
    using Addresses = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;
    /// getaddrinfo's shape; tests put a lookup that answers when they say.
    using Lookup = std::function<int(const char* host, const char* service, const addrinfo* hints,
                                     addrinfo** found)>;

    /// The stream addresses of `host` for `port`. Throws IMAPError::connectionFailed with the
    /// system's text ("Name or service not known") when the lookup fails, IMAPError::timeout
    /// when `deadline` passes first, CancellationError when `stop` is requested first.
    static Addresses resolve(const std::string& host, uint16_t port,
                             std::chrono::steady_clock::time_point deadline, std::stop_token stop,
                             Lookup lookup = ::getaddrinfo);
};

} // namespace qs
