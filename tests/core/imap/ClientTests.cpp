#include "imap/HostResolver.h"
#include "imap/IMAPClient.h"
#include "support/Cancellation.h"
#include "support/DovecotEnvironment.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"
#include "support/FakeIMAPServer.h"

#include <arpa/inet.h>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace qs {
namespace {

using test::FakeIMAPServer;
using namespace std::chrono_literals;
using test::DovecotFixture;
using Clock = std::chrono::steady_clock;

IMAPServer local(uint16_t port) {
    return IMAPServer{"127.0.0.1", port, true};
}

struct Session {
    explicit Session(const std::string& scenario, const std::string& greeting = "* OK hi")
        : server("S: " + greeting + "\n" + scenario), client(local(server.port()), 5s) {
        client.connect();
    }
    void expectScriptRan() {
        EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
    }
    FakeIMAPServer server;
    IMAPClient client;
};

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

TEST(ClientConnect, GreetingsAndFailuresAndTheirTexts) {
    FakeIMAPServer plain("S: * OK [CAPABILITY IMAP4rev1] not encrypted\nX");
    FakeIMAPServer silent("stall\n---\nstall");
    FakeIMAPServer bye("S: * BYE busy\nX");
    FakeIMAPServer tagged("S: A1 OK hi\nX");
    const uint16_t closedPort = test::Loopback::freePort();
    // A listener whose accept queue is full drops further SYNs, so a connection attempt to it
    // stays pending: that is the connect timeout on loopback.
    uint16_t fullPort = 0;
    const int listener = test::Loopback::listen(fullPort, 1, "full");
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
        {local(bye.port()), 5s, "Couldn’t connect: busy"},
        {local(tagged.port()), 5s, "Unexpected server reply: no greeting"},
        {{"127.0.0.1", plain.port(), false}, 5s, "Couldn’t connect: TLS handshake failed: "},
        {{"127.0.0.1", silent.port(), false}, 300ms, "The server stopped responding."},
        {local(silent.port()), 300ms, "The server stopped responding."},
        {local(fullPort), 300ms, "The server stopped responding."},
    };
    for (const auto& [server, limit, error] : rows) {
        SCOPED_TRACE(server.host + ":" + std::to_string(server.port));
        IMAPClient client(server, limit);
        EXPECT_TRUE(errorOf([&] { client.connect(); }).starts_with(error)) << error;
    }
    for (int fd : fillers) {
        ::close(fd);
    }
    ::close(listener);
}

TEST(ClientRun, OneSessionOfOrdinaryCommands) {
    const std::string script = R"(
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
    )";
    Session session(script, "* OK [CAPABILITY OLD] hi");
    IMAPClient& client = session.client;
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
    // Every byte received counts, the greeting's too.
    std::istringstream lines(script);
    int64_t sent = std::ssize(std::string_view("* OK [CAPABILITY OLD] hi\r\n"));
    for (std::string line; std::getline(lines, line);) {
        if (size_t at = line.find("S: "); at != std::string::npos) {
            sent += std::ssize(line) - int64_t(at) - 1; // without "S: ", with CR LF
        }
    }
    EXPECT_EQ(client.bytesRead(), sent);
    session.expectScriptRan();
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
        Session session(script);
        EXPECT_EQ(errorOf([&] { action(session.client); }), error);
        session.expectScriptRan();
    }
}

TEST(ClientTimeout, AStallTimesOutAndCancelsButATrickleNeverDoes) {
    FakeIMAPServer stalled("S: * OK\nC: M0001 NOOP\nS: * 1 EXISTS\nstall");
    IMAPClient client(local(stalled.port()), 300ms);
    client.connect();
    EXPECT_EQ(errorOf([&] { client.run("NOOP", {}); }), "The server stopped responding.");
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
    IMAPClient client(local(server.port()), 60s, stop.get_token());
    client.connect();
    auto waiting = std::async(std::launch::async, [&] { client.run("NOOP", {}); });
    ASSERT_TRUE(server.waitUntilDone()); // the command is on the wire, the client waits
    stop.request_stop();
    EXPECT_THROW(waiting.get(), CancellationError);

    IMAPClient stopped(local(server.port()), 5s, stop.get_token());
    EXPECT_THROW(stopped.connect(), CancellationError);
    EXPECT_EQ(server.connectionCount(), 1);
}

TEST(Commands, OneSessionOfEach) {
    // A PREAUTH greeting opens a session as OK does.
    Session session(R"(
        C: M0001 LIST "" "*"
        S: * LIST () NIL INBOX
        S: * LIST (\NOSELECT) "/" foo
        S: * LIST (\HasNoChildren) "/" Entw&APw-rfe
        S: * LIST (\HasNoChildren) "/"
        S: * list (\Marked "odd" (x)) "." "Quoted name"
        S: * 3 EXISTS
        S: M0001 OK done
        C: M0002 EXAMINE "INBOX"
        S: * 3 EXISTS
        S: * 0 RECENT
        S: * OK [UIDVALIDITY 1700000000] UIDs valid
        S: * OK [UIDNEXT 4392] Predicted next UID
        S: * 5 exists
        S: * FLAGS (\Seen \Deleted)
        S: M0002 OK [READ-ONLY] done
        C: M0003 EXAMINE "Box"
        S: M0003 OK [READ-WRITE] granted
        C: M0004 SELECT "Box"
        S: M0004 OK [READ-ONLY] answered
        C: M0005 EXAMINE "Box"
        S: M0005 OK plain
        C: M0006 SELECT "a\"b"
        S: * OK [UIDVALIDITY x] bad
        S: * OK [UIDNEXT -1] bad
        S: * many EXISTS
        S: M0006 OK done
        C: M0007 SELECT {8}
        S: + go
        C: Brief€
        S: M0007 NO [NONEXISTENT] Mailbox doesn't exist: Brief€
        C: M0008 UID SEARCH UID 5:*
        S: * SEARCH 9 5 x 7
        S: * SEARCH 6
        S: M0008 OK done
        C: M0009 UID SEARCH DELETED
        S: * SEARCH
        S: M0009 OK no SEARCH line at all
        C: M0010 UID STORE 1:3,8 +FLAGS.SILENT (\Deleted)
        S: M0010 OK done
        C: M0011 UID STORE 2 -FLAGS.SILENT (\Deleted)
        S: M0011 OK done
        C: M0012 UID FETCH 1:3,7 (UID RFC822.SIZE INTERNALDATE FLAGS)
        S: * 1 FETCH (UID 1 RFC822.SIZE 120 INTERNALDATE "01-Jan-2024 00:00:00 +0000" FLAGS (\Seen))
        S: * 12 FETCH (FLAGS (\Deleted))
        S: * 3 EXPUNGE
        S: * 2 FETCH (FLAGS () UID 7 RFC822.SIZE 5)
        S: M0012 OK done
        C: M0013 UID FETCH 7,9 (UID RFC822.SIZE INTERNALDATE FLAGS BODY.PEEK[])
        B: * 12 FETCH (UID 9 FLAGS (\\Seen) RFC822.SIZE 99 INTERNALDATE "17-Jul-1996 02:44:25 -0700" BODY[] {3}\r\nabc)\r\n
        S: * 13 FETCH (UID 10 BODY[] NIL)
        S: * 14 FETCH (BODY[] "no uid")
        B: * 11 FETCH (UID 7 RFC822 {4}\r\nd\r\ne)\r\n
        S: M0013 OK done
        C: M0014 LOGIN "ann" "pw"
        S: M0014 OK logged in
        C: M0015 CAPABILITY
        S: * CAPABILITY IMAP4rev1 UIDPLUS
        S: M0015 OK done
        C: M0016 UID EXPUNGE 4:5
        S: * 2 EXPUNGE
        S: M0016 OK done
        C: M0017 LOGIN "ann" "pw"
        S: M0017 OK [CAPABILITY IMAP4rev1 MOVE] logged in
        C: M0018 EXPUNGE
        S: M0018 OK done
    )",
                    "* PREAUTH hello");
    IMAPClient& client = session.client;
    std::vector<IMAPMailbox> mailboxes = client.list();
    ASSERT_EQ(mailboxes.size(), 4u);
    EXPECT_EQ(mailboxes[0], (IMAPMailbox{"INBOX", "INBOX", std::nullopt, {}}));
    EXPECT_TRUE(mailboxes[0].isSelectable());
    EXPECT_EQ(mailboxes[1], (IMAPMailbox{"foo", "foo", "/", {"\\NOSELECT"}}));
    EXPECT_FALSE(mailboxes[1].isSelectable());
    EXPECT_EQ(mailboxes[2], (IMAPMailbox{"Entw&APw-rfe", "Entwürfe", "/", {"\\HasNoChildren"}}));
    EXPECT_EQ(mailboxes[3], (IMAPMailbox{"Quoted name", "Quoted name", ".", {"\\Marked", "odd"}}));
    EXPECT_EQ(client.select("INBOX", true), (SelectInfo{1700000000, 5, 4392, true}));
    // Read-only follows only a grant upward.
    EXPECT_FALSE(client.select("Box", true).readOnly);
    EXPECT_FALSE(client.select("Box", false).readOnly);
    EXPECT_TRUE(client.select("Box", true).readOnly);
    EXPECT_EQ(client.select("a\"b", false), (SelectInfo{0, 0, std::nullopt, false}));
    EXPECT_EQ(errorOf([&] { client.select("Brief€", false); }),
              "SELECT failed (NO): Mailbox doesn't exist: Brief€");
    EXPECT_TRUE(client.fetchMeta({}).empty());
    client.fetchBodies({}, [](IMAPFetchItem&&) { ADD_FAILURE(); });
    client.markDeleted({});
    client.unmarkDeleted({});
    EXPECT_EQ(client.uidSearch("UID 5:*"), (std::vector<uint32_t>{5, 6, 7, 9}));
    EXPECT_TRUE(client.uidSearch("DELETED").empty());
    client.markDeleted({8, 3, 2, 1});
    client.unmarkDeleted({2});
    EXPECT_EQ(client.fetchMeta({7, 3, 2, 1, 1}),
              (std::vector<IMAPFetchItem>{{1, 1, 120, dateFromUnix(1704067200), {"\\Seen"}, {}},
                                          {2, 7, 5, std::nullopt, {}, std::nullopt}}));
    std::vector<IMAPFetchItem> seen;
    client.fetchBodies({9, 7}, [&](IMAPFetchItem&& item) { seen.push_back(item); });
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], (IMAPFetchItem{12, 9, 99, dateFromUnix(837596665), {"\\Seen"}, "abc"}));
    EXPECT_EQ(seen[1].uid, 7u);
    EXPECT_EQ(seen[1].body, "d\r\ne");
    client.login("ann", "pw");
    EXPECT_TRUE(client.expunge({4, 5}));
    // Told the capabilities with the sign-in, it asks for none; without UIDPLUS, no UID EXPUNGE.
    client.login("ann", "pw");
    EXPECT_FALSE(client.expunge({4, 5}));
    session.expectScriptRan();
}

int loopback(const char*, const char* service, const addrinfo* hints, addrinfo** found) {
    return ::getaddrinfo("127.0.0.1", service, hints, found);
}

TEST(HostResolverTest, AnswersFailuresAndGivesUp) {
    auto addresses = HostResolver::resolve("localhost", 993, Clock::now() + 10s, {}, loopback);
    ASSERT_NE(addresses, nullptr);
    ASSERT_EQ(addresses->ai_family, AF_INET);
    EXPECT_EQ(ntohs(reinterpret_cast<sockaddr_in*>(addresses->ai_addr)->sin_port), 993);

    bool looked = false;
    auto noName = [&](const char*, const char*, const addrinfo*, addrinfo**) {
        looked = true;
        return EAI_NONAME;
    };
    EXPECT_EQ(
        errorOf([&] { HostResolver::resolve("x.invalid", 993, Clock::now() + 1h, {}, noName); }),
        "Couldn’t connect: " + std::string(::gai_strerror(EAI_NONAME)));
    std::stop_source stopped;
    stopped.request_stop();
    looked = false;
    EXPECT_EQ(errorOf([&] {
                  HostResolver::resolve("localhost", 993, Clock::now() + 1h, stopped.get_token(),
                                        noName);
              }),
              "cancelled");
    EXPECT_FALSE(looked);

    // A lookup that doesn't answer until let: ended by the deadline, then by a stop from
    // another thread long before its deadline.
    for (bool byStop : {false, true}) {
        // Shared, as the lookup may outlive the call that started it.
        auto started = std::make_shared<std::promise<void>>();
        std::promise<void> release;
        auto held = [=, let = release.get_future().share()](const char* name, const char* service,
                                                            const addrinfo* hints,
                                                            addrinfo** found) {
            started->set_value();
            let.wait();
            return loopback(name, service, hints, found);
        };
        std::stop_source stop;
        std::jthread stopper([&, began = started->get_future()] {
            began.wait();
            if (byStop) {
                stop.request_stop();
            }
        });
        EXPECT_EQ(errorOf([&] {
                      HostResolver::resolve("slow.example", 993,
                                            Clock::now() + (byStop ? 1h : 20ms), stop.get_token(),
                                            held);
                  }),
                  byStop ? "cancelled" : "The server stopped responding.");
        release.set_value();
    }
}

// Dovecot starts before the first test, so no test's time includes its start-up.
[[maybe_unused]] auto* const dovecotEnvironment =
    ::testing::AddGlobalTestEnvironment(new test::DovecotEnvironment);

std::string message(const std::string& subject, const std::string& body) {
    return "From: Ann <ann@example.org>\r\nTo: bob@example.org\r\nSubject: " + subject +
           "\r\nDate: Tue, 5 Mar 2024 10:00:00 +0000\r\nMessage-ID: <" + subject +
           "@example.org>\r\n\r\n" + body + "\r\n";
}

// Non-ASCII goes out as a literal, the space and quote quoted: a real server agrees.
const std::string password = "s3cret \"wörd\"";

TEST(DovecotClient, SignsInListsExaminesSearchesFetchesAndExpunges) {
    DovecotFixture& dovecot = DovecotFixture::shared();
    dovecot.addUser("reader", password);
    dovecot.createFolder("reader", "Archive/2023");
    dovecot.createFolder("reader", "Entwürfe");
    dovecot.createFolder("reader", "Old \"Mail\"");
    dovecot.setUIDValidity("reader", "Old \"Mail\"", 4242);
    std::vector<std::string> sent = {message("one", "first"), message("two", "second"),
                                     message("three", "third")};
    const std::vector<Date> arrivals = {dateFromUnix(1'301'904'000), dateFromUnix(1'577'836'799),
                                        dateFromUnix(946'684'800)};
    dovecot.deliverAll("reader", "INBOX", sent, arrivals);

    IMAPClient client(IMAPServer{"localhost", dovecot.imapsPort(), false}, 30s);
    client.connect();
    EXPECT_TRUE(errorOf([&] {
                    client.login("reader", "wrong");
                }).starts_with("Sign-in was refused (NO): "));
    client.login("reader", password);
    EXPECT_TRUE(client.capabilities().contains("IMAP4REV1"));
    EXPECT_TRUE(client.capabilities().contains("UIDPLUS"));

    std::map<std::string, IMAPMailbox> mailboxes;
    for (const IMAPMailbox& mailbox : client.list()) {
        mailboxes[mailbox.name] = mailbox;
    }
    for (const char* name : {"INBOX", "Archive", "Archive/2023", "Entw&APw-rfe"}) {
        EXPECT_TRUE(mailboxes.contains(name)) << name;
    }
    EXPECT_EQ(mailboxes["Archive/2023"].delimiter, "/");
    EXPECT_EQ(mailboxes["Entw&APw-rfe"].displayName, "Entwürfe");
    EXPECT_NE(client.select("Entw&APw-rfe", true).uidValidity, 0u);
    EXPECT_EQ(client.select("Old \"Mail\"", true).uidValidity, 4242u);
    EXPECT_TRUE(
        errorOf([&] { client.select("Nowhere", true); }).starts_with("EXAMINE failed (NO): "));

    SelectInfo info = client.select("INBOX", true);
    EXPECT_EQ(info, (SelectInfo{dovecot.uidValidity("reader", "INBOX"), 3, 4, true}));
    EXPECT_EQ(client.uidSearch("ALL"), (std::vector<uint32_t>{1, 2, 3}));
    EXPECT_EQ(client.uidSearch("UID 2:*"), (std::vector<uint32_t>{2, 3}));
    EXPECT_TRUE(client.uidSearch("DELETED").empty());

    std::vector<IMAPFetchItem> meta = client.fetchMeta({1, 2, 3});
    ASSERT_EQ(meta.size(), 3u);
    for (size_t i = 0; i < meta.size(); ++i) {
        EXPECT_EQ(meta[i].uid, i + 1);
        EXPECT_EQ(meta[i].size, static_cast<int64_t>(sent[i].size()));
        EXPECT_EQ(meta[i].internalDate, arrivals[i]);
        EXPECT_FALSE(meta[i].body.has_value());
    }
    std::vector<std::string> bodies;
    client.fetchBodies({3, 1, 2}, [&](IMAPFetchItem&& item) {
        EXPECT_EQ(item.size, static_cast<int64_t>(item.body->size()));
        bodies.push_back(std::move(*item.body));
    });
    EXPECT_EQ(bodies, sent);
    EXPECT_TRUE(client.uidSearch("SEEN").empty()); // BODY.PEEK[] leaves them unread

    EXPECT_FALSE(client.select("INBOX", false).readOnly);
    client.markDeleted({2, 3});
    EXPECT_EQ(client.uidSearch("DELETED"), (std::vector<uint32_t>{2, 3}));
    client.unmarkDeleted({3});
    EXPECT_EQ(client.uidSearch("DELETED"), (std::vector<uint32_t>{2}));
    EXPECT_TRUE(client.expunge({2}));
    EXPECT_EQ(client.uidSearch("ALL"), (std::vector<uint32_t>{1, 3}));

    // Real-world messages and a 20 MB one come back byte for byte. Dovecot keeps CR LF text as
    // it came; bare CRs and NULs are Dovecot's to rewrite, not the client's to prove.
    std::vector<std::string> delivered =
        test::corpusMail(40, {64, std::numeric_limits<size_t>::max(), false, false, true});
    ASSERT_GE(delivered.size(), 20u);
    std::string large;
    for (uint64_t line = 0; large.size() < 20'000'000; ++line) {
        large +=
            "line " + std::to_string(line) + " " + std::string(line % 70, 'a' + line % 26) + "\r\n";
    }
    delivered.push_back(message("large", large));
    dovecot.createFolder("reader", "Corpus");
    std::vector<uint32_t> stored = dovecot.deliverAll("reader", "Corpus", delivered);
    client.select("Corpus", true);
    ASSERT_EQ(client.uidSearch("ALL"), stored);
    int64_t before = client.bytesRead();
    size_t index = 0;
    client.fetchBodies(stored, [&](IMAPFetchItem&& item) {
        ASSERT_LT(index, delivered.size());
        EXPECT_EQ(item.uid, stored[index]);
        EXPECT_EQ(item.size, static_cast<int64_t>(delivered[index].size()));
        EXPECT_TRUE(*item.body == delivered[index]) << "message " << index << " differs";
        ++index;
    });
    EXPECT_EQ(index, delivered.size());
    EXPECT_GT(client.bytesRead() - before, static_cast<int64_t>(large.size()));
    client.logout();
    EXPECT_FALSE(client.isConnected());
    client.logout();
}

// Refused during the handshake; the untrusted server also has a plain listener for dev mode.
TEST(DovecotTLS, RefusesUntrustedAndMisnamedCertificates) {
    const std::tuple<bool, const char*, const char*, const char*> rows[] = {
        // trusted CA, certificate's host, host connected to, the check's verdict
        {false, "", "127.0.0.1", "(self-signed certificate in certificate chain)"},
        {true, "mail.example.invalid", "localhost", "(hostname mismatch)"},
        {true, "mail.example.invalid", "127.0.0.1", "(IP address mismatch)"},
    };
    for (const auto& [trusted, certificateHost, host, verdict] : rows) {
        SCOPED_TRACE(verdict);
        DovecotFixture::Options options;
        options.trusted = trusted;
        options.certificateHost = certificateHost;
        options.plainListener = !trusted;
        DovecotFixture fixture(options);
        if (options.plainListener) {
            fixture.addUser("dev", "pw");
            IMAPClient plain(IMAPServer{"127.0.0.1", fixture.imapPort(), true}, 30s);
            plain.connect();
            plain.login("dev", "pw");
            EXPECT_EQ(plain.select("INBOX", true).exists, 0);
        }
        IMAPClient client(IMAPServer{host, fixture.imapsPort(), false}, 30s);
        const std::string error = errorOf([&] { client.connect(); });
        EXPECT_TRUE(error.starts_with("Couldn’t connect: ")) << error;
        EXPECT_NE(error.find("certificate verify failed"), std::string::npos) << error;
        EXPECT_NE(error.find(verdict), std::string::npos) << error;
    }
}

} // namespace
} // namespace qs
