#pragma once

// A programmable handler for the shared fake IMAP server that answers the few commands a backup
// sends from an in-memory set of folders, so runner tests can vary the mail and inject faults
// without scripting every line. Everything is answered on the fake's own thread.

#include "support/FakeIMAPServer.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace qs::test {

struct FakeFolder {
    std::string name;
    std::vector<std::string> attributes;
    std::uint32_t uidValidity = 1;
    /// UID → raw message.
    std::map<std::uint32_t, std::string> messages;
    /// UIDs whose RFC822.SIZE isn't sent.
    std::vector<std::uint32_t> withoutSize;
};

class FakeMailboxes {
public:
    std::vector<FakeFolder> folders;
    /// Counting bodies sent over all connections from 1: close the connection halfway through
    /// this body's literal.
    std::optional<int> dropInBody;
    /// Answer LIST with no mailbox at all.
    bool listNothing = false;
    /// Answer LOGOUT by closing the connection without a word.
    bool closeOnLogout = false;

    /// Commands received, in order, as "NAME args".
    std::vector<std::string> commands() const;
    int bodiesSent() const;

    /// A server on 127.0.0.1 backed by this object (which must outlive it).
    std::unique_ptr<FakeIMAPServer> serve();

private:
    void handle(FakeIMAPConnection& connection, const FakeIMAPCommand& command);
    FakeFolder* find(const std::string& name);

    mutable std::mutex mutex_;
    std::vector<std::string> commands_;
    std::string selected_;
    int bodiesSent_ = 0;
};

} // namespace qs::test
