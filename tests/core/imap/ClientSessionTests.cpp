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

using test::FakeIMAPCommand;
using test::FakeIMAPConnection;
using test::FakeIMAPServer;
using namespace std::chrono_literals;

IMAPServer local(uint16_t port) {
    return IMAPServer{"127.0.0.1", port, true};
}

// Runs `body` and returns the IMAPError it throws; fails the test if it throws none.
template <typename Body>
IMAPError imapErrorOf(Body&& body) {
    try {
        body();
    } catch (const IMAPError& error) {
        return error;
    }
    ADD_FAILURE() << "no IMAPError was thrown";
    return IMAPError::closed();
}

// A loopback socket bound to a free port (listening when asked), and that port.
std::pair<int, sockaddr_in> boundLoopback(bool listening) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(listening ? ::listen(fd, 0) : 0, 0);
    EXPECT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
    return {fd, address};
}

TEST(ClientGreeting, AcceptsOKAndPREAUTHAndRefusesTheRest) {
    struct Row {
        const char* name;
        const char* greeting;
        std::optional<IMAPError> error;
        std::set<std::string> capabilities;
    } rows[] = {
        {"capabilities in the code",
         "* OK [CAPABILITY IMAP4rev1 uidplus] hi",
         std::nullopt,
         {"IMAP4REV1", "UIDPLUS"}},
        {"preauth", "* PREAUTH hello", std::nullopt, {}},
        {"other code", "* OK [ALERT] hi", std::nullopt, {}},
        {"bye", "* BYE busy", IMAPError::connectionFailed("busy"), {}},
        {"no", "* NO x", IMAPError::protocolError("no greeting"), {}},
        {"tagged", "A1 OK hi", IMAPError::protocolError("no greeting"), {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeIMAPServer server(std::string("S: ") + row.greeting + "\nX");
        IMAPClient client(local(server.port()), 5s);
        if (row.error) {
            EXPECT_EQ(imapErrorOf([&] { client.connect(); }), *row.error);
        } else {
            client.connect();
            EXPECT_EQ(client.capabilities(), row.capabilities);
        }
        EXPECT_TRUE(server.waitUntilDone());
    }
}

TEST(ClientConnect, PlaintextIsRefusedForAnyHostButTheExactLoopbackAddress) {
    FakeIMAPServer server("S: * OK\nX");
    for (const char* host : {"localhost", "::1", "127.0.0.01", "example.com"}) {
        SCOPED_TRACE(host);
        IMAPClient client(IMAPServer{host, server.port(), true}, 5s);
        EXPECT_EQ(imapErrorOf([&] { client.connect(); }), IMAPError::insecureNotAllowed());
    }
    EXPECT_EQ(server.connectionCount(), 0);
}

TEST(ClientConnect, PortZeroAndARefusedConnectionFailWithTheirTexts) {
    IMAPClient zero(local(0), 5s);
    EXPECT_EQ(imapErrorOf([&] { zero.connect(); }).description(), "Couldn’t connect: bad port");

    // A port that was just free: nothing listens there.
    auto [fd, address] = boundLoopback(false);
    ::close(fd);
    IMAPClient refused(local(ntohs(address.sin_port)), 5s);
    EXPECT_EQ(imapErrorOf([&] { refused.connect(); }),
              IMAPError::connectionFailed("Connection refused"));
}

TEST(ClientConnect, WithoutPlaintextTheFirstBytesAreTLS) {
    // A server that speaks IMAP in clear where TLS is expected fails the handshake: there is
    // no falling back to plain text.
    FakeIMAPServer plain("S: * OK [CAPABILITY IMAP4rev1] not encrypted\nX");
    IMAPClient client(IMAPServer{"127.0.0.1", plain.port(), false}, 5s);
    IMAPError error = imapErrorOf([&] { client.connect(); });
    EXPECT_EQ(error.kind(), IMAPError::Kind::connectionFailed);
    EXPECT_TRUE(error.text().starts_with("TLS handshake failed: ")) << error.text();

    // A server that never answers the handshake times out like any other silence.
    FakeIMAPServer silent("stall");
    IMAPClient waiting(IMAPServer{"127.0.0.1", silent.port(), false}, 300ms);
    EXPECT_EQ(imapErrorOf([&] { waiting.connect(); }), IMAPError::timeout());
}

TEST(ClientConnect, AConnectionThatIsNeverAcceptedTimesOut) {
    // A listener whose accept queue is full drops further SYNs, so a connection attempt to it
    // stays pending: that is the connect timeout on loopback.
    auto [listener, address] = boundLoopback(true);
    std::vector<int> fillers;
    for (int i = 0; i < 4; ++i) {
        int filler = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        ::connect(filler, reinterpret_cast<sockaddr*>(&address), sizeof address);
        fillers.push_back(filler);
    }
    IMAPClient client(local(ntohs(address.sin_port)), 300ms);
    EXPECT_EQ(imapErrorOf([&] { client.connect(); }), IMAPError::timeout());
    for (int filler : fillers) {
        ::close(filler);
    }
    ::close(listener);
}

TEST(ClientRun, NumbersTagsFromM0001AndPassesTheTaggedCode) {
    FakeIMAPServer server(R"(
        S: * OK ready
        C: M0001 NOOP
        S: M0001 OK [SOMETHING 1] done
        C: M0002 CHECK
        S: M0002 ok fine
    )");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    EXPECT_EQ(client.run("NOOP", {}), (IMAPClient::Completion{"SOMETHING 1", "done"}));
    EXPECT_EQ(client.run("CHECK", {}), (IMAPClient::Completion{std::nullopt, "fine"}));
    EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
}

TEST(ClientRun, ANoOrBadEndsTheCommandWithItsWordStatusAndText) {
    FakeIMAPServer server(R"(
        S: * OK
        C: M0001 LOGIN "u" "p"
        S: M0001 NO [AUTHENTICATIONFAILED] wrong
        C: M0002 UID FETCH 1 (UID)
        S: M0002 BAD bad syntax
    )");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    IMAPError login = imapErrorOf([&] { client.login("u", "p"); });
    EXPECT_EQ(login, IMAPError::commandFailed("LOGIN", IMAPStatus::no, "wrong"));
    IMAPError fetch = imapErrorOf([&] {
        client.run("UID FETCH", {IMAPClient::Arg::raw("1"), IMAPClient::Arg::raw("(UID)")});
    });
    EXPECT_EQ(fetch, IMAPError::commandFailed("UID FETCH", IMAPStatus::bad, "bad syntax"));
    EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
}

TEST(ClientRun, QuotesStringsAndSendsNonASCIIAsASynchronisingLiteral) {
    FakeIMAPServer server(R"(
        S: * OK
        C: M0001 LOGIN "a\"b\\c" {6}
        S: + ready
        C: pässw "x"
        S: M0001 OK [CAPABILITY IMAP4rev1 IDLE] in
    )");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    // The password literal is followed by a quoted argument, to show the line goes on after it.
    client.run("LOGIN", {IMAPClient::Arg::string("a\"b\\c"), IMAPClient::Arg::string("pässw"),
                         IMAPClient::Arg::string("x")});
    EXPECT_EQ(client.capabilities(), (std::set<std::string>{"IMAP4REV1", "IDLE"}));
    EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
}

TEST(ClientRun, TwoLiteralsInOneLineWaitTwice) {
    FakeIMAPServer server(R"(
        S: * OK
        C: M0001 LOGIN {2}
        S: * OK still here
        S: + one
        C: ü {2}
        S: + two
        C: é
        S: M0001 OK [CAPABILITY IMAP4rev1] welcome
    )");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    std::vector<IMAPResponse> seen;
    client.run("LOGIN", {IMAPClient::Arg::string("ü"), IMAPClient::Arg::string("é")},
               [&](IMAPResponse& response) { seen.push_back(response); });
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], IMAPResponse(IMAPResponse::UntaggedStatus{IMAPStatus::ok, std::nullopt,
                                                                 "still here"}));
    EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
}

TEST(ClientRun, ALiteralRefusedWithATaggedNoIsALiteralFailureNotASignInFailure) {
    FakeIMAPServer server(R"(
        S: * OK
        C: M0001 LOGIN "joe" {6}
        S: M0001 NO no 8-bit here
        C: M0002 LOGOUT
        S: * BYE
        S: M0002 OK
    )");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    IMAPError error = imapErrorOf([&] { client.login("joe", "pässw"); });
    EXPECT_EQ(error, IMAPError::commandFailed("literal", IMAPStatus::no, "no 8-bit here"));
    EXPECT_EQ(error.description(), "literal failed (NO): no 8-bit here");
    client.logout(); // the literal never went out, so the conversation is still in step
    EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
}

// One session: a stale tag doesn't end a command, an untagged CAPABILITY replaces the set and
// still reaches the callback, and BYE during LOGOUT is an ordinary response.
TEST(ClientRun, StaleTagsUntaggedCapabilityAndByeAtLogout) {
    FakeIMAPServer server(R"(
        S: * OK [CAPABILITY OLD] hi
        C: M0001 NOOP
        S: M0000 NO late answer to something else
        S: M0001 OK now
        C: M0002 CAPABILITY
        S: * capability IMAP4rev1 (x) NIL "quoted" uidplus
        S: M0002 OK
        C: M0003 LOGOUT
        S: * BYE see you
        S: M0003 OK done
        X
    )");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    EXPECT_EQ(client.capabilities(), std::set<std::string>{"OLD"});
    std::vector<IMAPResponse> seen;
    auto collect = [&](IMAPResponse& response) {
        seen.push_back(response);
    };
    EXPECT_EQ(client.run("NOOP", {}, collect).text, "now");
    ASSERT_EQ(seen.size(), 1u);
    ASSERT_NE(seen[0].tagged(), nullptr);
    EXPECT_EQ(seen[0].tagged()->tag, "M0000");
    client.run("CAPABILITY", {}, collect);
    EXPECT_EQ(client.capabilities(), (std::set<std::string>{"IMAP4REV1", "QUOTED", "UIDPLUS"}));
    EXPECT_EQ(seen.size(), 2u);
    EXPECT_EQ(client.run("LOGOUT", {}, collect).text, "done");
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_NE(seen[2].untaggedStatus(), nullptr);
}

TEST(ClientBye, DuringAnyOtherCommandEndsItAsAConnectionFailure) {
    struct Row {
        const char* bye;
        const char* text;
    } rows[] = {{"* BYE", "server said goodbye"},
                {"* BYE shutting down for maintenance", "shutting down for maintenance"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bye);
        FakeIMAPServer server(std::string("S: * OK\nC: M0001 NOOP\nS: ") + row.bye + "\nX");
        IMAPClient client(local(server.port()), 5s);
        client.connect();
        EXPECT_EQ(imapErrorOf([&] { client.run("NOOP", {}); }),
                  IMAPError::connectionFailed(row.text));
    }
}

TEST(ClientTimeout, AStalledServerTimesOutAtTheGreetingAndDuringACommand) {
    FakeIMAPServer atGreeting("stall");
    IMAPClient first(local(atGreeting.port()), 300ms);
    EXPECT_EQ(imapErrorOf([&] { first.connect(); }), IMAPError::timeout());

    FakeIMAPServer duringCommand("S: * OK\nC: M0001 NOOP\nS: * 1 EXISTS\nstall");
    IMAPClient second(local(duringCommand.port()), 300ms);
    second.connect();
    IMAPError error = imapErrorOf([&] { second.run("NOOP", {}); });
    EXPECT_EQ(error, IMAPError::timeout());
    // The timed-out connection is cancelled: the next command fails, it doesn't hang.
    EXPECT_EQ(imapErrorOf([&] { second.run("NOOP", {}); }).kind(),
              IMAPError::Kind::connectionFailed);
}

TEST(ClientTimeout, AServerTricklingOneByteAtATimeNeverTimesOut) {
    // Each byte comes well inside the limit, though the whole line takes several times it.
    // (26 bytes at 50 ms take 1.3 s against a limit of 400 ms: wide margins for a busy machine.)
    FakeIMAPServer server("S: * OK\nC: M0001 NOOP\ntrickle 50: M0001 OK slow but steady");
    IMAPClient client(local(server.port()), 400ms);
    client.connect();
    EXPECT_EQ(client.run("NOOP", {}).text, "slow but steady");
}

TEST(ClientCancellation, AStopWakesABlockedWaitAtOnce) {
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
}

TEST(ClientCancellation, AStopBeforeConnectingConnectsNowhere) {
    FakeIMAPServer server("S: * OK\nX");
    std::stop_source stop;
    stop.request_stop();
    IMAPClient client(local(server.port()), 5s, stop.get_token());
    EXPECT_THROW(client.connect(), CancellationError);
    EXPECT_EQ(server.connectionCount(), 0);
}

TEST(ClientClose, TheServerClosingMidLiteralEndsTheCommandAsClosed) {
    FakeIMAPServer server(R"(
        S: * OK
        C: M0001 UID FETCH 1 (BODY.PEEK[])
        B: * 1 FETCH (UID 1 BODY[] {100}\r\nonly twenty bytes...
        X
    )");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    int messages = 0;
    IMAPError error = imapErrorOf([&] {
        client.run("UID FETCH", {IMAPClient::Arg::raw("1"), IMAPClient::Arg::raw("(BODY.PEEK[])")},
                   [&](IMAPResponse&) { ++messages; });
    });
    EXPECT_EQ(error, IMAPError::closed());
    EXPECT_EQ(messages, 0);
}

TEST(ClientClose, SendingAfterDisconnectIsClosedAndDisconnectRepeats) {
    FakeIMAPServer server("S: * OK\nstall");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    client.disconnect();
    client.disconnect();
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(imapErrorOf([&] { client.run("NOOP", {}); }), IMAPError::closed());
}

TEST(ClientRun, AMalformedResponseIsAParseErrorUnwrapped) {
    FakeIMAPServer server("S: * OK\nC: M0001 NOOP\nS: * 1 X)\nS: M0001 OK\n");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    try {
        client.run("NOOP", {});
        ADD_FAILURE() << "no error";
    } catch (const IMAPParseError& error) {
        EXPECT_EQ(error.description(), "unexpected character )");
    }
}

TEST(ClientRun, ACallbackErrorLeavesRunAtOnce) {
    FakeIMAPServer server("S: * OK\nC: M0001 NOOP\nS: * 1 EXISTS\nS: * 2 EXISTS\nS: M0001 OK");
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    int calls = 0;
    EXPECT_THROW(client.run("NOOP", {},
                            [&](IMAPResponse&) {
                                ++calls;
                                throw std::runtime_error("disk full");
                            }),
                 std::runtime_error);
    EXPECT_EQ(calls, 1);
}

TEST(ClientBytesRead, CountsEveryByteReceivedIncludingTheGreeting) {
    std::string body(300000, 'x'); // more than one chunk
    std::string scenario = "S: * OK hi\nC: M0001 NOOP\nB: * 1 FETCH (BODY[] {" +
                           std::to_string(body.size()) + "}\\r\\n" + body + ")\\r\\n\n" +
                           "S: M0001 OK\n";
    FakeIMAPServer server(scenario);
    IMAPClient client(local(server.port()), 5s);
    client.connect();
    client.run("NOOP", {});
    int64_t expected = static_cast<int64_t>(std::string("* OK hi\r\n").size() +
                                            std::string("* 1 FETCH (BODY[] {300000}\r\n").size() +
                                            body.size() + 3 + std::string("M0001 OK\r\n").size());
    EXPECT_EQ(client.bytesRead(), expected);
}

} // namespace
} // namespace qs
