#include "support/IMAPRelay.h"

#include "support/Loopback.h"

#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace qs::test {

IMAPRelay::IMAPRelay(uint16_t serverPort) : serverPort_(serverPort) {
    // Only the accepting thread adds to the list, and the destructor stops it first.
    listener_.emplace("IMAPRelay", [this](int client) {
        connections_.emplace_back([this, client] { relay(client); });
    });
}

IMAPRelay::~IMAPRelay() {
    {
        std::lock_guard guard(lock_);
        closing_ = true;
    }
    changed_.notify_all();
    listener_->stop();
    for (std::thread& connection : connections_)
        connection.join();
}

void IMAPRelay::arm(std::string command, int occurrence, Action action) {
    std::lock_guard guard(lock_);
    command_ = std::move(command);
    occurrence_ = occurrence;
    action_ = action;
    seen_ = 0;
    stopped_ = false;
    letGo_ = false;
}

bool IMAPRelay::waitUntilStopped(std::chrono::milliseconds limit) {
    std::unique_lock guard(lock_);
    return changed_.wait_for(guard, limit, [this] { return stopped_; });
}

void IMAPRelay::letGo() {
    {
        std::lock_guard guard(lock_);
        letGo_ = true;
    }
    changed_.notify_all();
}

// Whether `line` is the armed command; counts it.
bool IMAPRelay::matches(const std::string& line) {
    std::lock_guard guard(lock_);
    const size_t end = line.find(' ') + 1 + command_.size();
    return !command_.empty() && line.find(' ') != std::string::npos &&
           line.compare(end - command_.size(), command_.size(), command_) == 0 &&
           end < line.size() && std::strchr(" \r\n", line[end]) && ++seen_ == occurrence_;
}

void IMAPRelay::relay(int client) {
    int server = Loopback::connect(serverPort_);
    // Client bytes not yet forwarded: commands go on a whole line at a time.
    std::string pending;
    char buffer[65536];
    for (int ready; server >= 0 && (ready = listener_->wait({client, server})) >= 0;) {
        if (ready == 1) {
            ssize_t got = ::recv(server, buffer, sizeof buffer, 0);
            if (got <= 0 ||
                !Loopback::sendAll(client, std::string_view(buffer, static_cast<size_t>(got))))
                break;
            continue;
        }
        ssize_t got = ::recv(client, buffer, sizeof buffer, 0);
        if (got <= 0)
            break;
        pending.append(buffer, static_cast<size_t>(got));
        bool cut = false;
        for (size_t end = pending.find('\n'); end != std::string::npos && !cut;
             end = pending.find('\n')) {
            std::string line = pending.substr(0, end + 1);
            pending.erase(0, end + 1);
            if (matches(line)) {
                std::unique_lock guard(lock_);
                stopped_ = true;
                changed_.notify_all();
                if (action_ == Action::hold)
                    changed_.wait(guard, [this] { return letGo_ || closing_; });
                cut = action_ == Action::cut || closing_;
            }
            cut = cut || !Loopback::sendAll(server, line);
        }
        if (cut)
            break;
    }
    if (server >= 0)
        ::close(server);
    ::shutdown(client, SHUT_RDWR);
    ::close(client);
}

} // namespace qs::test
