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

int loopback(const char*, const char* service, const addrinfo* hints, addrinfo** found) {
    return ::getaddrinfo("127.0.0.1", service, hints, found);
}

TEST(HostResolverTest, AnswersFailuresAndGivesUp) {
    auto addresses = HostResolver::resolve("localhost", 993, Clock::now() + 10s, {}, loopback);
    ASSERT_NE(addresses, nullptr);
    ASSERT_EQ(addresses->ai_family, AF_INET);
    EXPECT_EQ(ntohs(reinterpret_cast<sockaddr_in*>(addresses->ai_addr)->sin_port), 993);

    try {
        HostResolver::resolve(
            "nowhere.invalid", 993, Clock::now() + 10s, {},
            [](const char*, const char*, const addrinfo*, addrinfo**) { return EAI_NONAME; });
        FAIL() << "no error";
    } catch (const IMAPError& error) {
        EXPECT_EQ(error.kind(), IMAPError::Kind::connectionFailed);
        EXPECT_EQ(error.text(), ::gai_strerror(EAI_NONAME));
    }

    // A lookup that doesn't answer until let: ended by the deadline, then by a stop from
    // another thread long before its deadline; either way it finishes on its own once let.
    for (bool byStop : {false, true}) {
        SCOPED_TRACE(byStop ? "stop" : "deadline");
        // Shared, as the lookup may outlive the call that started it.
        auto started = std::make_shared<std::promise<void>>();
        auto finished = std::make_shared<std::promise<void>>();
        std::promise<void> release;
        auto held = [=, let = release.get_future().share()](const char* name, const char* service,
                                                            const addrinfo* hints,
                                                            addrinfo** found) {
            started->set_value();
            let.wait();
            int result = loopback(name, service, hints, found);
            finished->set_value();
            return result;
        };
        std::stop_source stop;
        std::jthread stopper([&, began = started->get_future()] {
            began.wait();
            if (byStop) {
                stop.request_stop();
            }
        });
        try {
            HostResolver::resolve("slow.example", 993, Clock::now() + (byStop ? 1h : 20ms),
                                  stop.get_token(), held);
            ADD_FAILURE() << "no error";
        } catch (const IMAPError& error) {
            EXPECT_FALSE(byStop);
            EXPECT_EQ(error.kind(), IMAPError::Kind::timeout);
        } catch (const qs::CancellationError&) {
            EXPECT_TRUE(byStop);
        }
        release.set_value();
        finished->get_future().wait();
    }

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
