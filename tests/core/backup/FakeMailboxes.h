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
    /// UID → the RFC822.SIZE told instead of the true one.
    std::map<std::uint32_t, std::uint64_t> toldSizes;
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
    /// Raw bytes sent at the start and at the end of the first answer to a body FETCH (an
    /// answer nobody asked for, a literal of absurd length, a line that never ends).
    std::string beforeFirstBodies;
    std::string afterFirstBodies;

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
    int bodyFetches_ = 0;
};

} // namespace qs::test
