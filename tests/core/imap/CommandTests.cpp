// The commands against the scripted fake: what goes on the wire and how replies, including odd
// and unsolicited ones, become results.
#include "imap/IMAPClient.h"
#include "support/FakeIMAPServer.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

using test::FakeIMAPServer;
using namespace std::chrono_literals;

// A client connected to a fake running `scenario` after an "* OK" greeting.
struct Session {
    explicit Session(const std::string& scenario)
        : server("S: * OK hi\n" + scenario),
          client(IMAPServer{"127.0.0.1", server.port(), true}, 5s) {
        client.connect();
    }
    void expectScriptRan() {
        EXPECT_TRUE(server.waitUntilDone()) << ::testing::PrintToString(server.failures());
    }
    FakeIMAPServer server;
    IMAPClient client;
};

TEST(CommandList, MakesMailboxesInServerOrderAndSkipsWhatIsNoListing) {
    Session session(R"(
        C: M0001 LIST "" "*"
        S: * LIST () NIL INBOX
        S: * LIST (\NOSELECT) "/" foo
        S: * LIST (\HasNoChildren) "/" Entw&APw-rfe
        S: * LIST (\HasNoChildren) "/"
        S: * list (\Marked "odd" (x)) "." "Quoted name"
        S: * 3 EXISTS
        S: M0001 OK done
    )");
    std::vector<IMAPMailbox> mailboxes = session.client.list();
    ASSERT_EQ(mailboxes.size(), 4u);
    EXPECT_EQ(mailboxes[0], (IMAPMailbox{"INBOX", "INBOX", std::nullopt, {}}));
    EXPECT_TRUE(mailboxes[0].isSelectable());
    EXPECT_EQ(mailboxes[1].attributes, std::vector<std::string>{"\\NOSELECT"});
    EXPECT_FALSE(mailboxes[1].isSelectable());
    EXPECT_EQ(mailboxes[2].name, "Entw&APw-rfe");
    EXPECT_EQ(mailboxes[2].displayName, "Entwürfe");
    EXPECT_EQ(mailboxes[3], (IMAPMailbox{"Quoted name", "Quoted name", ".", {"\\Marked", "odd"}}));
    session.expectScriptRan();
}

TEST(CommandSelect, ReadsValidityNextExistsAndReadOnlyOrFails) {
    Session session(R"(
        C: M0001 EXAMINE "INBOX"
        S: * 3 EXISTS
        S: * 0 RECENT
        S: * OK [UIDVALIDITY 1700000000] UIDs valid
        S: * OK [UIDNEXT 4392] Predicted next UID
        S: * 5 exists
        S: * FLAGS (\Seen \Deleted)
        S: M0001 OK [READ-ONLY] done
        C: M0002 EXAMINE "Box"
        S: M0002 OK [READ-WRITE] granted
        C: M0003 SELECT "Box"
        S: M0003 OK [READ-ONLY] answered
        C: M0004 EXAMINE "Box"
        S: M0004 OK plain
        C: M0005 SELECT "a\"b"
        S: * OK [UIDVALIDITY x] bad
        S: * OK [UIDNEXT -1] bad
        S: * many EXISTS
        S: M0005 OK done
        C: M0006 SELECT {8}
        S: + go
        C: Brief€
        S: M0006 NO [NONEXISTENT] Mailbox doesn't exist: Brief€
    )");
    IMAPClient& client = session.client;
    EXPECT_EQ(client.select("INBOX", true), (SelectInfo{1700000000, 5, 4392, true}));
    // Read-only follows only a grant upward.
    EXPECT_FALSE(client.select("Box", true).readOnly);
    EXPECT_FALSE(client.select("Box", false).readOnly);
    EXPECT_TRUE(client.select("Box", true).readOnly);
    EXPECT_EQ(client.select("a\"b", false), (SelectInfo{0, 0, std::nullopt, false}));
    try {
        client.select("Brief€", false);
        ADD_FAILURE() << "no error";
    } catch (const IMAPError& error) {
        EXPECT_EQ(error.description(), "SELECT failed (NO): Mailbox doesn't exist: Brief€");
    }
    session.expectScriptRan();
}

// Empty UID sets send nothing; search collects readable UIDs ascending; stores are silent;
// fetches keep items with a UID, in server order, and pass over unsolicited data.
TEST(CommandSearchStoreFetch, OneSession) {
    Session session(R"(
        C: M0001 UID SEARCH UID 5:*
        S: * SEARCH 9 5 x 7
        S: * SEARCH 6
        S: M0001 OK done
        C: M0002 UID SEARCH DELETED
        S: * SEARCH
        S: M0002 OK no SEARCH line at all
        C: M0003 UID STORE 1:3,8 +FLAGS.SILENT (\Deleted)
        S: M0003 OK done
        C: M0004 UID STORE 2 -FLAGS.SILENT (\Deleted)
        S: M0004 OK done
        C: M0005 UID FETCH 1:3,7 (UID RFC822.SIZE INTERNALDATE FLAGS)
        S: * 1 FETCH (UID 1 RFC822.SIZE 120 INTERNALDATE "01-Jan-2024 00:00:00 +0000" FLAGS (\Seen))
        S: * 12 FETCH (FLAGS (\Deleted))
        S: * 3 EXPUNGE
        S: * 2 FETCH (FLAGS () UID 7 RFC822.SIZE 5)
        S: M0005 OK done
        C: M0006 UID FETCH 7,9 (UID RFC822.SIZE INTERNALDATE FLAGS BODY.PEEK[])
        B: * 12 FETCH (UID 9 FLAGS (\\Seen) RFC822.SIZE 99 INTERNALDATE "17-Jul-1996 02:44:25 -0700" BODY[] {3}\r\nabc)\r\n
        S: * 13 FETCH (UID 10 BODY[] NIL)
        S: * 14 FETCH (BODY[] "no uid")
        B: * 11 FETCH (UID 7 RFC822 {4}\r\nd\r\ne)\r\n
        S: M0006 OK done
    )");
    IMAPClient& client = session.client;
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
    session.expectScriptRan();
}

// Capabilities come from the login's answer, else from asking; UID EXPUNGE only with UIDPLUS;
// LOGOUT never fails and closes even a dead connection.
TEST(CommandLoginExpungeLogout, CapabilitiesDecide) {
    Session asks(R"(
        C: M0001 LOGIN "ann" "pw"
        S: M0001 OK logged in
        C: M0002 CAPABILITY
        S: * CAPABILITY IMAP4rev1 UIDPLUS
        S: M0002 OK done
        C: M0003 UID EXPUNGE 4:5
        S: * 2 EXPUNGE
        S: M0003 OK done
    )");
    asks.client.login("ann", "pw");
    EXPECT_TRUE(asks.client.expunge({4, 5}));
    asks.expectScriptRan();

    Session told(R"(
        C: M0001 LOGIN "ann" "pw"
        S: M0001 OK [CAPABILITY IMAP4rev1 MOVE] logged in
        C: M0002 EXPUNGE
        S: M0002 OK done
        C: M0003 LOGOUT
        X
    )");
    told.client.login("ann", "pw");
    EXPECT_TRUE(told.client.capabilities().contains("MOVE"));
    EXPECT_FALSE(told.client.expunge({4, 5}));
    told.client.logout();
    EXPECT_FALSE(told.client.isConnected());
    told.client.logout();
    told.expectScriptRan();
}

} // namespace
} // namespace qs
