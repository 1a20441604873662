#pragma once

// A vault holding backed-up copies of the INBOX of a fake server (FakeMailbox), so that cleanup
// tests can survey, prove and release against a server that really holds the messages, and
// change either side at any point.

#include "cleanup/Cleaner.h"
#include "support/FakeIMAPServer.h"
#include "support/FakeMailbox.h"
#include "support/TemporaryDirectory.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qs::test {

class CleanupWorld {
public:
    /// INTERNALDATEs before and after `limit`.
    static constexpr int64_t oldDate = 1704067200;   // 1 Jan 2024
    static constexpr int64_t newDate = 1735689600;   // 1 Jan 2025
    static constexpr int64_t limitDate = 1717200000; // 1 Jun 2024
    static constexpr const char* folderDirectory = "Test/INBOX";

    explicit CleanupWorld(bool uidplus);

    /// A small message that reads as mail; `padding` bytes of body make sizes differ.
    static std::string message(int n, size_t padding = 0);

    /// Puts a message on the server, dated `date`. With `filed`, its copy goes into the vault
    /// as "Test/INBOX/Message {uid}.eml", recorded in the sync state when `recorded` (else it is
    /// found only by its name). Returns the UID.
    uint32_t add(const std::string& body, int64_t date = oldDate, bool filed = true,
                 bool recorded = true);
    /// `count` old messages, filed and recorded.
    std::vector<uint32_t> addMany(int count);
    /// Writes the sync state of what was filed, under the folder's UIDVALIDITY.
    void saveSync();

    /// The vault path of a UID's copy (whether or not the file exists).
    std::string pathOf(uint32_t uid) const;

    Cleaner cleaner(int64_t chunkSize = 200) const;
    /// `plan` of INBOX before `limitDate`.
    CleanupPlan plan() const;

    /// The client lines received so far that start, after the tag, with `command`.
    std::vector<std::string> sent(std::string_view command) const;
    /// The server's INBOX, as UIDs.
    std::vector<uint32_t> onServer() const { return mailbox.uids("INBOX"); }
    /// UIDs on the server flagged \Deleted.
    std::vector<uint32_t> markedOnServer() const;

    TemporaryDirectory directory;
    ArchiveLayout layout;
    MailAccount account;
    FakeMailbox mailbox;
    std::unique_ptr<FakeIMAPServer> server;
    FolderState folder;
};

} // namespace qs::test
