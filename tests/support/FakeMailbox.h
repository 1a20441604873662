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

/// A small stateful IMAP server model for the programmable FakeIMAPServer, for servers a real
/// one can't imitate on demand: one without UIDPLUS, one that lies about sizes, one that
/// refuses a STORE. It answers CAPABILITY, LOGIN, LIST, SELECT, EXAMINE, UID SEARCH (ALL,
/// [UN]DELETED, [UN]SEEN, UID set, BEFORE date, ANDed), UID FETCH (UID, RFC822.SIZE,
/// INTERNALDATE, FLAGS, BODY[], BODY.PEEK[]), UID STORE ([+-]FLAGS[.SILENT]), EXPUNGE, UID
/// EXPUNGE (with UIDPLUS), NOOP and LOGOUT; no sequence numbers, one connection at a time.
/// `intercept` sees every command first and may answer it itself (return true) to script a
/// misbehaviour at one point of an otherwise normal session. All accessors lock.
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
    /// A handler for FakeIMAPServer. The mailbox must outlive the server.
    FakeIMAPServer::Handler handler() {
        return [this](FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
            handle(connection, command);
        };
    }

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

    /// Faults in answers to a body FETCH: the connection closes (or, with `stallInBody`, goes
    /// silent) halfway through the `dropInBody`-th body sent over all connections; the raw
    /// bytes go out before and after the bodies of the first body FETCH.
    std::optional<int> dropInBody;
    bool stallInBody = false;
    std::string beforeFirstBodies;
    std::string afterFirstBodies;

private:
    void handle(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    std::string capabilities() const;
    void select(FakeIMAPConnection& connection, const FakeIMAPCommand& command, bool readOnly);
    void search(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    void fetch(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    void store(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    void expunge(FakeIMAPConnection& connection, const FakeIMAPCommand& command, bool byUID);
    /// The selected folder's messages in `set` (indexes, ascending); none without a folder.
    std::vector<size_t> inSelected(const std::string& set);
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
