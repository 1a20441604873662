#include "imap/IMAPClient.h"
#include "support/DovecotEnvironment.h"
#include "support/DovecotFixture.h"
#include "support/DovecotSeed.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>

namespace qs {
namespace {

using test::DovecotFixture;
using namespace std::chrono_literals;

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
    try {
        client.login("reader", "wrong");
        ADD_FAILURE() << "signed in with a wrong password";
    } catch (const IMAPError& error) {
        EXPECT_EQ(error.kind(), IMAPError::Kind::commandFailed);
        EXPECT_EQ(error.status(), IMAPStatus::no);
        EXPECT_TRUE(error.description().starts_with("Sign-in was refused (NO): "));
    }
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
    try {
        client.select("Nowhere", true);
        ADD_FAILURE() << "selected a missing folder";
    } catch (const IMAPError& error) {
        EXPECT_TRUE(error.description().starts_with("EXAMINE failed (NO): "))
            << error.description();
    }

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
    // BODY.PEEK[] leaves the messages unread.
    for (const auto& stored : dovecot.messages("reader", "INBOX")) {
        EXPECT_TRUE(stored.flags.empty()) << ::testing::PrintToString(stored.flags);
    }

    EXPECT_FALSE(client.select("INBOX", false).readOnly);
    client.markDeleted({2, 3});
    EXPECT_EQ(client.uidSearch("DELETED"), (std::vector<uint32_t>{2, 3}));
    client.unmarkDeleted({3});
    EXPECT_EQ(client.uidSearch("DELETED"), (std::vector<uint32_t>{2}));
    EXPECT_TRUE(client.expunge({2}));
    std::vector<uint32_t> left;
    for (const auto& stored : dovecot.messages("reader", "INBOX")) {
        left.push_back(stored.uid);
    }
    EXPECT_EQ(left, (std::vector<uint32_t>{1, 3}));

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
        try {
            client.connect();
            ADD_FAILURE() << "the handshake succeeded";
        } catch (const IMAPError& error) {
            EXPECT_EQ(error.kind(), IMAPError::Kind::connectionFailed);
            EXPECT_NE(error.text().find("certificate verify failed"), std::string::npos)
                << error.text();
            EXPECT_NE(error.text().find(verdict), std::string::npos) << error.text();
        }
    }
}

} // namespace
} // namespace qs
