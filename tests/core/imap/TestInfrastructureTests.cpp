// The shared test servers are used by the backup, cleanup and app tests as well, so their
// grammar and helpers are checked here against a bare socket and against doveadm's view.
#include "support/DovecotFixture.h"
#include "support/FakeIMAPServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qs::test {
namespace {

// A bare blocking client: enough to speak to the fake without the real client.
class RawClient {
public:
    explicit RawClient(uint16_t port) {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawClient() { ::close(fd_); }
    bool connected() const { return connected_; }
    void send(const std::string& bytes) {
        ASSERT_EQ(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    // One line including its CR LF, or what came before the server closed.
    std::string line() {
        std::string text;
        char c;
        while (::recv(fd_, &c, 1, 0) == 1) {
            text += c;
            if (c == '\n') {
                break;
            }
        }
        return text;
    }
    std::string bytes(size_t count) {
        std::string text;
        char c;
        while (text.size() < count && ::recv(fd_, &c, 1, 0) == 1) {
            text += c;
        }
        return text;
    }

private:
    int fd_;
    bool connected_ = false;
};

TEST(FakeIMAPServer, RunsAScriptWithLiteralsWildcardTagsAndRawBytes) {
    FakeIMAPServer server(R"(
        # greeting, then a login whose password is a literal
        S: * OK ready
        C: * LOGIN "joe" {3}
        S: + go
        C: p\w "x"
        S: $TAG OK [CAPABILITY IMAP4rev1] done
        B: * 1 FETCH (BODY[] {4}\r\nab\r\n)\r\n
        X
    )");
    RawClient client(server.port());
    ASSERT_TRUE(client.connected());
    EXPECT_EQ(client.line(), "* OK ready\r\n");
    client.send("A7 LOGIN \"joe\" {3}\r\n");
    EXPECT_EQ(client.line(), "+ go\r\n");
    client.send("p\\w \"x\"\r\n");
    EXPECT_EQ(client.line(), "A7 OK [CAPABILITY IMAP4rev1] done\r\n");
    EXPECT_EQ(client.bytes(30), "* 1 FETCH (BODY[] {4}\r\nab\r\n)\r\n");
    EXPECT_EQ(client.line(), ""); // closed
    EXPECT_TRUE(server.waitUntilDone());
    EXPECT_EQ(server.received(), (std::vector<std::string>{"A7 LOGIN \"joe\" {3}", "p\\w \"x\""}));
}

TEST(FakeIMAPServer, ReportsAMismatchAndClosesAndServesSuccessiveScripts) {
    FakeIMAPServer server("S: * OK one\nC: A1 NOOP\nS: A1 OK\n---\nS: * OK two\nX\n");
    {
        RawClient first(server.port());
        EXPECT_EQ(first.line(), "* OK one\r\n");
        first.send("A1 CAPABILITY\r\n");
        EXPECT_EQ(first.line(), "");
    }
    RawClient second(server.port());
    EXPECT_EQ(second.line(), "* OK two\r\n");
    EXPECT_FALSE(server.waitUntilDone());
    ASSERT_EQ(server.failures().size(), 1u);
    EXPECT_EQ(server.failures()[0], "scenario line 2: expected `A1 NOOP`, got `A1 CAPABILITY`");
    EXPECT_EQ(server.connectionCount(), 2);
}

TEST(FakeIMAPServer, ARefusedLiteralLeavesTheNextLineALine) {
    FakeIMAPServer server("S: * OK\nC: A1 LOGIN {2}\nS: A1 NO no literals\nC: A2 LOGOUT\nX");
    RawClient client(server.port());
    client.line();
    client.send("A1 LOGIN {2}\r\n");
    EXPECT_EQ(client.line(), "A1 NO no literals\r\n");
    client.send("A2 LOGOUT\r\n");
    EXPECT_TRUE(server.waitUntilDone());
}

TEST(FakeIMAPServer, ProgrammableModeInlinesLiteralsAndTokenisesCommands) {
    std::vector<FakeIMAPCommand> seen;
    FakeIMAPServer server("* OK hi",
                          [&](FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
                              seen.push_back(command);
                              connection.send(command.tag + " OK " + command.name);
                              if (command.name == "LOGOUT") {
                                  connection.close();
                              }
                          });
    RawClient client(server.port());
    EXPECT_EQ(client.line(), "* OK hi\r\n");
    client.send("M1 uid fetch 1:3 (UID BODY.PEEK[HEADER.FIELDS (A B)])\r\n");
    EXPECT_EQ(client.line(), "M1 OK UID FETCH\r\n");
    client.send("M2 SELECT {3}\r\n");
    EXPECT_EQ(client.line(), "+ go ahead\r\n");
    client.send("F\xc3\xbc \"a\\\"b\"\r\n");
    EXPECT_EQ(client.line(), "M2 OK SELECT\r\n");
    client.send("M3 LOGOUT\r\n");
    EXPECT_EQ(client.line(), "M3 OK LOGOUT\r\n");
    EXPECT_EQ(client.line(), "");
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].arguments,
              (std::vector<std::string>{"1:3", "(UID BODY.PEEK[HEADER.FIELDS (A B)])"}));
    EXPECT_EQ(seen[1].arguments, (std::vector<std::string>{"F\xc3\xbc", "a\"b"}));
    EXPECT_EQ(seen[1].line, "M2 SELECT {3}\r\nF\xc3\xbc \"a\\\"b\"");
}

TEST(FakeIMAPServer, DestructionEndsAStall) {
    auto server = std::make_unique<FakeIMAPServer>("S: * OK\nstall");
    RawClient client(server->port());
    EXPECT_EQ(client.line(), "* OK\r\n");
    EXPECT_TRUE(server->waitUntilDone());
    server.reset();
    EXPECT_EQ(client.line(), "");
}

TEST(DovecotFixture, DeliversListsFlagsAndRenumbers) {
    DovecotFixture& dovecot = DovecotFixture::shared();
    dovecot.addUser("fixture", "pw");
    dovecot.createFolder("fixture", "Deep/Er");
    uint32_t first = dovecot.deliver("fixture", "Deep/Er", "Subject: a\n\nbody\n");
    uint32_t second = dovecot.deliver("fixture", "Deep/Er", "Subject: b\n\nmore\n");
    EXPECT_EQ(second, first + 1);
    dovecot.addFlags("fixture", "Deep/Er", second, "\\Deleted");
    std::vector<DovecotFixture::StoredMessage> stored = dovecot.messages("fixture", "Deep/Er");
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored[0].size, 17u); // served with CR LF line ends
    EXPECT_EQ(stored[1].flags, std::vector<std::string>{"\\Deleted"});
    dovecot.setUIDValidity("fixture", "Deep/Er", 777);
    EXPECT_EQ(dovecot.uidValidity("fixture", "Deep/Er"), 777u);
}

} // namespace
} // namespace qs::test
