// Name lookup bounded by its deadline and its stop, with a lookup that answers only when the
// test lets it: what a dead name server looks like, without one.

#include "imap/HostResolver.h"

#include "imap/IMAPError.h"
#include "support/Cancellation.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;
using qs::HostResolver;
using qs::IMAPError;
using Clock = std::chrono::steady_clock;

// A lookup that waits for the test's word, then answers as getaddrinfo would for 127.0.0.1.
struct HeldLookup {
    std::shared_future<void> release;
    std::shared_ptr<std::promise<void>> started = std::make_shared<std::promise<void>>();
    std::shared_ptr<std::promise<void>> finished = std::make_shared<std::promise<void>>();

    HostResolver::Lookup lookup() const {
        return [release = release, started = started, finished = finished](
                   const char*, const char* service, const addrinfo* hints, addrinfo** found) {
            started->set_value();
            release.wait();
            int result = ::getaddrinfo("127.0.0.1", service, hints, found);
            finished->set_value();
            return result;
        };
    }
};

TEST(HostResolverTest, AnswersFailuresAndGivesUp) {
    // Answered at once: the addresses come back, with the port asked for.
    auto addresses = HostResolver::resolve(
        "localhost", 993, Clock::now() + 10s, {},
        [](const char*, const char* service, const addrinfo* hints, addrinfo** found) {
            return ::getaddrinfo("127.0.0.1", service, hints, found);
        });
    ASSERT_NE(addresses, nullptr);
    ASSERT_EQ(addresses->ai_family, AF_INET);
    EXPECT_EQ(ntohs(reinterpret_cast<sockaddr_in*>(addresses->ai_addr)->sin_port), 993);

    // An unknown name: the system's words.
    try {
        HostResolver::resolve(
            "nowhere.invalid", 993, Clock::now() + 10s, {},
            [](const char*, const char*, const addrinfo*, addrinfo**) { return EAI_NONAME; });
        FAIL() << "no error";
    } catch (const IMAPError& error) {
        EXPECT_EQ(error.kind(), IMAPError::Kind::connectionFailed);
        EXPECT_EQ(error.text(), ::gai_strerror(EAI_NONAME));
    }

    // A lookup that doesn't answer: the deadline ends the wait, and the lookup, once it does
    // answer, finishes on its own.
    {
        std::promise<void> release;
        HeldLookup held{release.get_future().share()};
        try {
            HostResolver::resolve("slow.example", 993, Clock::now() + 20ms, {}, held.lookup());
            FAIL() << "no error";
        } catch (const IMAPError& error) {
            EXPECT_EQ(error.kind(), IMAPError::Kind::timeout);
        }
        release.set_value();
        held.finished->get_future().wait();
    }

    // The same ended by a stop from another thread, long before its deadline.
    {
        std::promise<void> release;
        HeldLookup held{release.get_future().share()};
        std::stop_source stop;
        auto started = held.started->get_future();
        std::jthread stopper([&] {
            started.wait();
            stop.request_stop();
        });
        EXPECT_THROW(HostResolver::resolve("slow.example", 993, Clock::now() + 1h, stop.get_token(),
                                           held.lookup()),
                     qs::CancellationError);
        release.set_value();
        held.finished->get_future().wait();
    }

    // A stop requested already: no lookup is started at all.
    std::stop_source stopped;
    stopped.request_stop();
    bool looked = false;
    EXPECT_THROW(HostResolver::resolve("localhost", 993, Clock::now() + 1h, stopped.get_token(),
                                       [&](const char*, const char*, const addrinfo*, addrinfo**) {
                                           looked = true;
                                           return EAI_NONAME;
                                       }),
                 qs::CancellationError);
    EXPECT_FALSE(looked);
}

} // namespace
