// The stateful fake mailbox that cleanup tests build on, driven through the real client: the
// same steps a release takes, on a server with and without UIDPLUS.
#include "imap/IMAPClient.h"
#include "imap/IMAPDate.h"
#include "support/FakeMailbox.h"

#include <gtest/gtest.h>

namespace qs {
namespace {

using test::FakeIMAPServer;
using test::FakeMailbox;
using namespace std::chrono_literals;

struct Connected {
    explicit Connected(FakeMailbox& mailbox)
        : server(mailbox.greeting(), mailbox.handler()),
          client(IMAPServer{"127.0.0.1", server.port(), true}, 5s) {
        client.connect();
        client.login("user", "pw");
    }
    FakeIMAPServer server;
    IMAPClient client;
};

TEST(FakeMailbox, WithoutUIDPLUSAPlainExpungeTakesEveryFlaggedMessage) {
    FakeMailbox::Options options;
    options.uidplus = false;
    FakeMailbox mailbox(options);
    for (int i = 0; i < 5; ++i) {
        mailbox.add("INBOX", "Subject: " + std::to_string(i) + "\r\n\r\nbody\r\n");
    }
    mailbox.edit("INBOX", [](FakeMailbox::Folder& folder) {
        folder.messages[4].flags = {"\\Deleted"}; // flagged by someone else
    });
    Connected session(mailbox);
    EXPECT_FALSE(session.client.capabilities().contains("UIDPLUS"));
    SelectInfo info = session.client.select("INBOX", false);
    EXPECT_EQ(info, (SelectInfo{1, 5, 6, false}));
    EXPECT_EQ(session.client.uidSearch("DELETED"), std::vector<uint32_t>{5});

    session.client.markDeleted({1, 2});
    EXPECT_FALSE(session.client.expunge({1, 2}));
    EXPECT_EQ(mailbox.uids("INBOX"), (std::vector<uint32_t>{3, 4}));
    EXPECT_EQ(session.server.received().back().substr(5), " EXPUNGE");
}

TEST(FakeMailbox, WithUIDPLUSOnlyTheGivenFlaggedUIDsGo) {
    FakeMailbox mailbox;
    for (int i = 0; i < 4; ++i) {
        mailbox.add("INBOX", "x", {"\\Deleted"});
    }
    Connected session(mailbox);
    session.client.select("INBOX", false);
    session.client.unmarkDeleted({3});
    EXPECT_TRUE(session.client.expunge({2, 3}));
    EXPECT_EQ(mailbox.uids("INBOX"), (std::vector<uint32_t>{1, 3, 4}));
}

TEST(FakeMailbox, ReportsSizesDatesAndBodiesAndCanLie) {
    FakeMailbox mailbox;
    mailbox.addFolder("Old", 77);
    mailbox.add("Old", "old message", {"\\Seen"}, 1600000000);
    mailbox.add("Old", "new message", {}, 1710000000);
    mailbox.edit("Old", [](FakeMailbox::Folder& folder) { folder.messages[1].reportedSize = 5; });
    Connected session(mailbox);
    EXPECT_EQ(session.client.select("Old", true).uidValidity, 77u);
    EXPECT_EQ(
        session.client.uidSearch("BEFORE " + IMAPDate::searchString(dateFromUnix(1700000000))),
        std::vector<uint32_t>{1});
    std::vector<IMAPFetchItem> meta = session.client.fetchMeta({1, 2});
    ASSERT_EQ(meta.size(), 2u);
    EXPECT_EQ(meta[0], (IMAPFetchItem{1, 1, 11, dateFromUnix(1600000000), {"\\Seen"}, {}}));
    EXPECT_EQ(meta[1].size, 5);
    std::vector<std::string> bodies;
    session.client.fetchBodies({1, 2}, [&](IMAPFetchItem&& item) { bodies.push_back(*item.body); });
    EXPECT_EQ(bodies, (std::vector<std::string>{"old message", "new message"}));
    // EXAMINE refuses changes, as a read-only session must.
    EXPECT_THROW(session.client.markDeleted({1}), IMAPError);
}

TEST(FakeMailbox, AnInterceptScriptsOneMisbehaviour) {
    FakeMailbox mailbox;
    mailbox.add("INBOX", "x");
    mailbox.intercept = [](test::FakeIMAPConnection& connection,
                           const test::FakeIMAPCommand& command) {
        if (command.name != "UID STORE") {
            return false;
        }
        connection.send(command.tag + " NO [CANNOT] not today");
        return true;
    };
    Connected session(mailbox);
    session.client.select("INBOX", false);
    try {
        session.client.markDeleted({1});
        ADD_FAILURE() << "the store went through";
    } catch (const IMAPError& error) {
        EXPECT_EQ(error.description(), "UID STORE failed (NO): not today");
    }
    EXPECT_TRUE(mailbox.messages("INBOX")[0].flags.empty());
}

} // namespace
} // namespace qs
