#pragma once

#include "support/FakeIMAPServer.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace qs::test {

/// A small stateful IMAP server model for the programmable FakeIMAPServer, for tests that need
/// a server a real one can't imitate on demand: one WITHOUT UIDPLUS, one that lies about
/// sizes, one that refuses a STORE. It holds folders of messages with UIDs, flags, dates and
/// bodies, and answers the commands the system speaks:
///
///   CAPABILITY, LOGIN, LIST "" "*", SELECT, EXAMINE, UID SEARCH (ALL, DELETED, UNDELETED,
///   SEEN, UNSEEN, UID set, BEFORE date, criteria ANDed), UID FETCH (UID, RFC822.SIZE,
///   INTERNALDATE, FLAGS, BODY.PEEK[], BODY[]), UID STORE (+FLAGS, -FLAGS, FLAGS, .SILENT),
///   EXPUNGE, UID EXPUNGE (only with UIDPLUS), NOOP, LOGOUT.
///
/// It is a model, not a server: no sequence-number commands, no literals in replies but bodies,
/// no concurrency between connections. `intercept` sees every command first and may answer it
/// itself (return true) to script a misbehaviour at one point of an otherwise normal session.
///
///     FakeMailbox::Options options;
///     options.uidplus = false;
///     FakeMailbox mailbox(options);
///     mailbox.add("INBOX", "Subject: a\r\n\r\nx\r\n");
///     FakeIMAPServer server(mailbox.greeting(), mailbox.handler());
///     ... client signs in as "user" / "pw", releases messages ...
///     EXPECT_EQ(mailbox.uids("INBOX"), (std::vector<uint32_t>{2}));
///
/// All accessors lock: the handler runs on the server's thread.
class FakeMailbox {
public:
    struct Options {
        bool uidplus = true;
        std::string user = "user";
        std::string password = "pw";
    };

    struct Message {
        uint32_t uid = 0;
        std::string body;
        std::vector<std::string> flags;
        /// Unix seconds; INTERNALDATE is written in UTC.
        int64_t internalDate = 1704067200; // 1 Jan 2024
        /// What RFC822.SIZE reports; the body's size when not set (set it to make a liar), and
        /// left out of the answer when negative.
        std::optional<int64_t> reportedSize;
    };

    struct Folder {
        uint32_t uidValidity = 1;
        uint32_t uidNext = 1;
        std::vector<std::string> attributes;
        std::vector<Message> messages;
    };

    explicit FakeMailbox(Options options);
    FakeMailbox() : FakeMailbox(Options{}) {}

    /// "* OK [CAPABILITY ...] fake mailbox ready".
    std::string greeting() const;
    /// A handler for FakeIMAPServer that calls `handle`. The mailbox must outlive the server.
    FakeIMAPServer::Handler handler();
    /// Answers one command (intercept first).
    void handle(FakeIMAPConnection& connection, const FakeIMAPCommand& command);

    /// Creates the folder if needed (INBOX exists from the start).
    void addFolder(const std::string& name, uint32_t uidValidity = 1,
                   std::vector<std::string> attributes = {});
    /// Adds a message with the folder's next UID, which it returns.
    uint32_t add(const std::string& folder, std::string body, std::vector<std::string> flags = {},
                 int64_t internalDate = 1704067200);
    /// Changes a folder in place, under the lock (to set a UIDVALIDITY, a reported size, ...).
    void edit(const std::string& folder, const std::function<void(Folder&)>& change);

    /// The folder's messages / UIDs as they are now.
    std::vector<Message> messages(const std::string& folder) const;
    std::vector<uint32_t> uids(const std::string& folder) const;

    /// Whether `uid` is in an IMAP set such as "1:3,5,9:*", where * is `highest`.
    static bool inSet(const std::string& set, uint32_t uid, uint32_t highest);

    /// Sees each command first; returns true when it has answered it.
    std::function<bool(FakeIMAPConnection&, const FakeIMAPCommand&)> intercept;

    /// Faults in answers to a body FETCH. Counting bodies over all connections from 1, the
    /// connection closes halfway through body `dropInBody`'s literal. The raw bytes go out
    /// ahead of and after the bodies of the first body FETCH (an answer nobody asked for, a
    /// literal of absurd length, a line that never ends). With `stallInBody` the connection
    /// stays open and silent instead of closing.
    std::optional<int> dropInBody;
    bool stallInBody = false;
    std::string beforeFirstBodies;
    std::string afterFirstBodies;

private:
    std::string capabilities() const;
    void select(FakeIMAPConnection& connection, const FakeIMAPCommand& command, bool readOnly);
    void search(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    void fetch(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    void store(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    void expunge(FakeIMAPConnection& connection, const FakeIMAPCommand& command, bool byUID);
    Folder* selected();

    Options options_;
    mutable std::mutex mutex_;
    std::map<std::string, Folder> folders_;
    std::string selected_;
    bool readOnly_ = true;
    bool signedIn_ = false;
    int bodiesSent_ = 0;
    int bodyFetches_ = 0;
};

} // namespace qs::test
