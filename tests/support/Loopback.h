#pragma once

#include <cstdint>
#include <string_view>

namespace qs::test {

/// Plain TCP on 127.0.0.1 for the test servers: sockets are close-on-exec, and a failure to
/// listen throws std::runtime_error starting with `who`.
namespace Loopback {

/// A socket listening on a free port, which `port` receives.
int listen(std::uint16_t& port, int backlog, std::string_view who);
/// A socket connected to `port`, or -1 when nothing accepts there.
int connect(std::uint16_t port);
/// A port that was free a moment ago, for a server that can't take port 0 itself.
std::uint16_t freePort();
/// Sends all of `bytes`; false once the peer is gone.
bool sendAll(int fd, std::string_view bytes);

} // namespace Loopback

} // namespace qs::test
