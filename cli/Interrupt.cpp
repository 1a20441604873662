#include "Interrupt.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace qs::cli {

namespace {

int pipeEnds[2] = {-1, -1};

void onSignal(int signal) {
    char byte = 1;
    [[maybe_unused]] auto written = ::write(pipeEnds[1], &byte, 1);
    // The same signal a second time is not caught: someone who asks twice wants out now.
    std::signal(signal, SIG_DFL);
}

} // namespace

Interrupt::Interrupt(QObject* parent) : QObject(parent) {
    if (::pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    notifier_ = new QSocketNotifier(pipeEnds[0], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, [this] {
        char byte;
        while (::read(pipeEnds[0], &byte, 1) > 0) {
        }
        emit interrupted();
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    // What `systemctl stop` and `kill` send: a scheduled backup stops as Ctrl-C stops it.
    ::sigaction(SIGTERM, &action, nullptr);
}

Interrupt::~Interrupt() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    for (int& end : pipeEnds) {
        if (end >= 0)
            ::close(end);
        end = -1;
    }
}

} // namespace qs::cli
