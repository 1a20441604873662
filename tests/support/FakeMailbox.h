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

/// A small stateful IMAP server for the programmable FakeIMAPServer, for servers a real one
/// can't imitate on demand: one without UIDPLUS, one that lies about sizes, one that refuses a
/// STORE. It answers what the client sends, by UID only, one connection at a time. `intercept`
/// sees every command first and may answer it itself (return true). All accessors lock.
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
        int64_t internalDate = 1704067200; // Unix seconds
        /// What RFC822.SIZE reports instead of the body's size; left out when negative.
        std::optional<int64_t> reportedSize;
    };

    struct Folder {
        uint32_t uidValidity = 1;
        uint32_t uidNext = 1;
        std::vector<std::string> attributes;
        std::vector<Message> messages;
    };

    explicit FakeMailbox(Options options) : options_(std::move(options)) {}

    std::string greeting() const;
    /// A handler for FakeIMAPServer. The mailbox must outlive the server.
    FakeIMAPServer::Handler handler() {
        return [this](FakeIMAPConnection& connection, const FakeIMAPCommand& command) {
            handle(connection, command);
        };
    }

    void addFolder(const std::string& name, uint32_t uidValidity = 1,
                   std::vector<std::string> attributes = {});
    /// Adds a message with the folder's next UID, which it returns.
    uint32_t add(const std::string& folder, std::string body, std::vector<std::string> flags = {},
                 int64_t internalDate = 1704067200);
    /// Changes a folder in place, under the lock.
    void edit(const std::string& folder, const std::function<void(Folder&)>& change);

    std::vector<Message> messages(const std::string& folder) const;
    std::vector<uint32_t> uids(const std::string& folder) const;

    /// Whether `uid` is in an IMAP set such as "1:3,5,9:*", where * is `highest`.
    static bool inSet(const std::string& set, uint32_t uid, uint32_t highest);

    std::function<bool(FakeIMAPConnection&, const FakeIMAPCommand&)> intercept;

    /// The connection closes (or, with `stallInBody`, goes silent) halfway through the
    /// `dropInBody`-th body sent over all connections; the raw bytes go out before and after
    /// the bodies of the first body FETCH.
    std::optional<int> dropInBody;
    bool stallInBody = false;
    std::string beforeFirstBodies;
    std::string afterFirstBodies;

private:
    void handle(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    std::string capabilities() const;
    void fetch(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    std::vector<size_t> inSelected(const std::string& set);
    Folder* selected();

    Options options_;
    mutable std::mutex mutex_;
    std::map<std::string, Folder> folders_{{"INBOX", {}}};
    std::string selected_;
    bool readOnly_ = true;
    int bodiesSent_ = 0;
    int bodyFetches_ = 0;
};

} // namespace qs::test
