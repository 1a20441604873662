// The session against the scripted fake server: greetings, tags, literals, BYE, stalls,
// trickles, cancellation and drops, with what went over the wire checked line by line.
#include "imap/IMAPClient.h"
#include "support/Cancellation.h"
#include "support/FakeIMAPServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace qs {
namespace {

using test::FakeIMAPServer;
using namespace std::chrono_literals;

IMAPServer local(uint16_t port) {
    return IMAPServer{"127.0.0.1", port, true};
}

// The text of the exception `body` throws; fails the test if it throws none.
template <typename Body>
std::string errorOf(Body&& body) {
    try {
        body();
    } catch (const std::exception& error) {
        return error.what();
    }
    ADD_FAILURE() << "no error was thrown";
    return "";
}

// A loopback socket bound to a free port (listening when asked), and that port.
std::pair<int, uint16_t> boundLoopback(bool listening) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(listening ? ::listen(fd, 0) : 0, 0);
    EXPECT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
    return {fd, ntohs(address.sin_port)};
}

TEST(ClientGreeting, AcceptsOKAndPREAUTHAndRefusesTheRest) {
    const std::tuple<const char*, std::string, std::set<std::string>> rows[] = {
        // greeting, error, capabilities
        {"* OK [CAPABILITY IMAP4rev1 uidplus] hi", "", {"IMAP4REV1", "UIDPLUS"}},
        {"* PREAUTH hello", "", {}},
        {"* BYE busy", "Couldn’t connect: busy", {}},
        {"* NO x", "Unexpected server reply: no greeting", {}},
        {"A1 OK hi", "Unexpected server reply: no greeting", {}},
    };
    for (const auto& [greeting, error, capabilities] : rows) {
        SCOPED_TRACE(greeting);
        FakeIMAPServer server("S: " + std::string(greeting) + "\nX");
        IMAPClient client(local(server.port()), 5s);
        if (!error.empty()) {
            EXPECT_EQ(errorOf([&] { client.connect(); }), error);
        } else {
            client.connect();
            EXPECT_EQ(client.capabilities(), capabilities);
        }
        EXPECT_TRUE(server.waitUntilDone());
    }
}

TEST(ClientConnect, FailuresAndTheirTexts) {
    FakeIMAPServer plain("S: * OK [CAPABILITY IMAP4rev1] not encrypted\nX");
    FakeIMAPServer silent("stall\n---\nstall");
    auto [closed, closedPort] = boundLoopback(false);
    ::close(closed);
    // A listener whose accept queue is full drops further SYNs, so a connection attempt to it
    // stays pending: that is the connect timeout on loopback.
    auto [listener, fullPort] = boundLoopback(true);
    std::vector<int> fillers;
    for (int i = 0; i < 4; ++i) {
        fillers.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        sockaddr_in address{AF_INET, htons(fullPort), {htonl(INADDR_LOOPBACK)}, {}};
        ::connect(fillers.back(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    }
    const std::string insecure = IMAPError::insecureNotAllowed().description();
    const std::tuple<IMAPServer, std::chrono::milliseconds, std::string> rows[] = {
        // Plain text only to the exact loopback address: refused before connecting.
        {{"localhost", closedPort, true}, 5s, insecure},
        {{"127.0.0.01", closedPort, true}, 5s, insecure},
        {local(0), 5s, "Couldn’t connect: bad port"},
        {local(closedPort), 5s, "Couldn’t connect: Connection refused"},
        // IMAP in clear where TLS is expected: no falling back to plain text.
        {{"127.0.0.1", plain.port(), false}, 5s, "Couldn’t connect: TLS handshake failed: "},
        {{"127.0.0.1", silent.port(), false}, 300ms, "The server stopped responding."},
        {local(silent.port()), 300ms, "The server stopped responding."},
        {local(fullPort), 300ms, "The server stopped responding."},
    };
    for (const auto& [server, limit, error] : rows) {
        SCOPED_TRACE(server.host + ":" + std::to_string(server.port));
        IMAPClient client(server, limit);
        EXPECT_TRUE(errorOf([&] { client.connect(); }).starts_with(error));
    }
    for (int fd : fillers) {
        ::close(fd);
    }
    ::close(listener);
}

// One session through tags, status codes, quoting, literals, a stale tag, an untagged
// CAPABILITY that replaces the set, and BYE during LOGOUT as an ordinary response.
TEST(ClientRun, OneSessionOfOrdinaryCommands) {
    FakeIMAPServer server(R"(
        S: * OK [CAPABILITY OLD] hi
        C: M0001 NOOP
        S: M0000 NO late answer to something else
        S: M0001 OK [SOMETHING 1] done
        C: M0002 LOGIN "a\"b\\c" {6}
        S: + ready
        C: pässw "x"
        S: M0002 OK [CAPABILITY IMAP4rev1 IDLE] in
        C: M0003 LOGIN {2}
        S: * OK still here
        S: + one
        C: ü {2}
        S: + two
        C: é
        S: M0003 OK welcome
        C: M0004 CAPABILITY
        S: * capability IMAP4rev1 (x) NIL "quoted" uidplus
        S: M0004 OK
        C: M0005 LOGOUT
        S: * BYE see you
        S: M0005 OK done
        X
    )");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    EXPECT_EQ(client.capabilities(), std::set<std::string>{"OLD"});
    std::vector<IMAPResponse> seen;
    auto collect = [&](IMAPResponse& response) {
        seen.push_back(response);
    };
    using Arg = IMAPClient::Arg;
    EXPECT_EQ(client.run("NOOP", {}, collect), (IMAPClient::Completion{"SOMETHING 1", "done"}));
    client.run("LOGIN", {Arg::string("a\"b\\c"), Arg::string("pässw"), Arg::string("x")});
    EXPECT_EQ(client.capabilities(), (std::set<std::string>{"IMAP4REV1", "IDLE"}));
    client.run("LOGIN", {Arg::string("ü"), Arg::string("é")}, collect);
    client.run("CAPABILITY", {}, collect);
    EXPECT_EQ(client.capabilities(), (std::set<std::string>{"IMAP4REV1", "QUOTED", "UIDPLUS"}));
    EXPECT_EQ(client.run("LOGOUT", {}, collect).text, "done");
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[0], IMAPResponse(IMAPResponse::Tagged{"M0000", IMAPStatus::no, std::nullopt,
                                                         "late answer to something else"}));
    EXPECT_EQ(seen[1], IMAPResponse(IMAPResponse::UntaggedStatus{IMAPStatus::ok, std::nullopt,
                                                                 "still here"}));
    EXPECT_NE(seen[2].untagged(), nullptr);
    EXPECT_NE(seen[3].untaggedStatus(), nullptr);
    EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
}

TEST(ClientRun, FailuresEndTheCommandWithTheirTexts) {
    using Arg = IMAPClient::Arg;
    const std::string fetch = "C: M0001 UID FETCH 1 (BODY.PEEK[])\n";
    auto runFetch = [](IMAPClient& client) {
        client.run("UID FETCH", {Arg::raw("1"), Arg::raw("(BODY.PEEK[])")},
                   [](IMAPResponse&) { ADD_FAILURE() << "a response reached the callback"; });
    };
    auto noop = [](IMAPClient& client) {
        client.run("NOOP", {});
    };
    const std::tuple<const char*, std::string, std::function<void(IMAPClient&)>, std::string>
        rows[] = {
            {"sign-in refused", "C: M0001 LOGIN \"u\" \"p\"\nS: M0001 NO [X] wrong",
             [](IMAPClient& client) { client.login("u", "p"); }, "Sign-in was refused (NO): wrong"},
            {"BAD", fetch + "S: M0001 BAD bad syntax", runFetch,
             "UID FETCH failed (BAD): bad syntax"},
            // The literal never went out, so the conversation is still in step for LOGOUT.
            {"literal refused",
             "C: M0001 LOGIN \"joe\" {6}\nS: M0001 NO no 8-bit here\nC: M0002 LOGOUT\nS: M0002 OK",
             [](IMAPClient& client) {
                 try {
                     client.login("joe", "pässw");
                 } catch (const IMAPError&) {
                     client.logout();
                     throw;
                 }
             },
             "literal failed (NO): no 8-bit here"},
            {"BYE", "C: M0001 NOOP\nS: * BYE\nX", noop, "Couldn’t connect: server said goodbye"},
            {"BYE with text", "C: M0001 NOOP\nS: * BYE shutting down\nX", noop,
             "Couldn’t connect: shutting down"},
            {"closed mid literal", fetch + "B: * 1 FETCH (UID 1 BODY[] {100}\\r\\nonly twenty\nX",
             runFetch, "The server closed the connection."},
            {"malformed response", "C: M0001 NOOP\nS: * 1 X)\nS: M0001 OK", noop,
             "unexpected character )"},
            {"callback error leaves at once",
             "C: M0001 NOOP\nS: * 1 EXISTS\nS: * 2 EXISTS\nS: M0001 OK",
             [](IMAPClient& client) {
                 client.run("NOOP", {},
                            [](IMAPResponse&) { throw std::runtime_error("disk full"); });
             },
             "disk full"},
            {"run after disconnect", "stall",
             [](IMAPClient& client) {
                 client.disconnect();
                 client.disconnect();
                 client.run("NOOP", {});
             },
             "The server closed the connection."},
        };
    for (const auto& [name, script, action, error] : rows) {
        SCOPED_TRACE(name);
        FakeIMAPServer server("S: * OK\n" + script);
        IMAPClient client(local(server.port()), 5s);
        client.connect();
        EXPECT_EQ(errorOf([&] { action(client); }), error);
        EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
    }
}

TEST(ClientTimeout, AStallTimesOutAndCancelsButATrickleNeverDoes) {
    FakeIMAPServer stalled("S: * OK\nC: M0001 NOOP\nS: * 1 EXISTS\nstall");
    IMAPClient client(local(stalled.port()), 300ms);
    client.connect();
    EXPECT_EQ(errorOf([&] { client.run("NOOP", {}); }), "The server stopped responding.");
    // The timed-out connection is cancelled: the next command fails, it doesn't hang.
    EXPECT_TRUE(errorOf([&] { client.run("NOOP", {}); }).starts_with("Couldn’t connect"));

    // Each byte comes well inside the limit, though the whole line takes several times it
    // (26 bytes at 50 ms take 1.3 s against 400 ms: wide margins for a busy machine).
    FakeIMAPServer trickle("S: * OK\nC: M0001 NOOP\ntrickle 50: M0001 OK slow but steady");
    IMAPClient patient(local(trickle.port()), 400ms);
    patient.connect();
    EXPECT_EQ(patient.run("NOOP", {}).text, "slow but steady");
}

TEST(ClientCancellation, AStopWakesABlockedWaitAndOneBeforeConnectingConnectsNowhere) {
    FakeIMAPServer server("S: * OK\nC: M0001 NOOP\nstall");
    std::stop_source stop;
    // A long limit: only the stop can end this wait within the test.
    IMAPClient client(local(server.port()), 60s, stop.get_token());
    client.connect();
    std::exception_ptr failure;
    std::thread worker([&] {
        try {
            client.run("NOOP", {});
        } catch (...) {
            failure = std::current_exception();
        }
    });
    ASSERT_TRUE(server.waitUntilDone()); // the command is on the wire, the client waits
    stop.request_stop();
    worker.join();
    ASSERT_TRUE(failure);
    EXPECT_THROW(std::rethrow_exception(failure), CancellationError);

    IMAPClient stopped(local(server.port()), 5s, stop.get_token());
    EXPECT_THROW(stopped.connect(), CancellationError);
    EXPECT_EQ(server.connectionCount(), 1);
}

TEST(ClientBytesRead, CountsEveryByteReceivedIncludingTheGreeting) {
    std::string body(300000, 'x'); // more than one chunk
    FakeIMAPServer server("S: * OK hi\nC: M0001 NOOP\nB: * 1 FETCH (BODY[] {300000}\\r\\n" + body +
                          ")\\r\\n\nS: M0001 OK\n");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    client.run("NOOP", {});
    EXPECT_EQ(client.bytesRead(),
              int64_t(std::string("* OK hi\r\n* 1 FETCH (BODY[] {300000}\r\n").size() +
                      body.size() + std::string(")\r\nM0001 OK\r\n").size()));
}

} // namespace
} // namespace qs
