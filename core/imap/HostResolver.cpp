#include "imap/HostResolver.h"

#include "imap/IMAPError.h"
#include "support/Cancellation.h"

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace qs {

namespace {

// What the lookup thread and the waiting caller share; whichever lets go last frees it.
struct Pending {
    std::mutex mutex;
    std::condition_variable_any answered;
    bool done = false;
    bool abandoned = false;
    int result = 0;
    int systemError = 0;
    addrinfo* found = nullptr;
};

} // namespace

HostResolver::Addresses HostResolver::resolve(const std::string& host, uint16_t port,
                                              std::chrono::steady_clock::time_point deadline,
                                              std::stop_token stop, Lookup lookup) {
    checkCancelled(stop);
    auto pending = std::make_shared<Pending>();
    std::thread([pending, lookup = std::move(lookup), host, service = std::to_string(port)] {
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_flags = AI_ADDRCONFIG;
        addrinfo* found = nullptr;
        int result = lookup(host.c_str(), service.c_str(), &hints, &found);
        int systemError = errno;
        std::lock_guard lock(pending->mutex);
        if (pending->abandoned) {
            if (result == 0 && found != nullptr) {
                ::freeaddrinfo(found);
            }
            return;
        }
        pending->done = true;
        pending->result = result;
        pending->systemError = systemError;
        pending->found = result == 0 ? found : nullptr;
        pending->answered.notify_all();
    }).detach();

    std::unique_lock lock(pending->mutex);
    if (!pending->answered.wait_until(lock, stop, deadline, [&] { return pending->done; })) {
        pending->abandoned = true;
        if (stop.stop_requested()) {
            throw CancellationError();
        }
        throw IMAPError::timeout();
    }
    if (pending->result != 0) {
        throw IMAPError::connectionFailed(pending->result == EAI_SYSTEM
                                              ? std::strerror(pending->systemError)
                                              : ::gai_strerror(pending->result));
    }
    return Addresses(pending->found, ::freeaddrinfo);
}

} // namespace qs
