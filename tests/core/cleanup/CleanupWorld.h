#pragma once

// A fake server's INBOX and a vault holding copies of it, either side open to change.

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
    static constexpr int64_t oldDate = 1704067200, newDate = 1735689600, limitDate = 1717200000;
    static constexpr const char* folderDirectory = "Test/INBOX";

    explicit CleanupWorld(bool uidplus);

    static std::string message(int n, size_t padding = 0);

    /// A message on the server; `filed`: copied to `pathOf`, and in the sync state if `recorded`.
    uint32_t add(const std::string& body, int64_t date = oldDate, bool filed = true,
                 bool recorded = true);
    void addMany(int count);
    void saveSync();

    std::string pathOf(uint32_t uid) const {
        return std::string(folderDirectory) + "/Message " + std::to_string(uid) + ".eml";
    }

    Cleaner cleaner(int64_t chunkSize = 200) const;
    CleanupPlan plan() const { return cleaner().plan("INBOX", dateFromUnix(limitDate)); }

    /// The client lines so far that start with `command`, untagged.
    std::vector<std::string> sent(std::string_view command) const;
    std::vector<uint32_t> onServer() const { return mailbox.uids("INBOX"); }
    std::vector<uint32_t> markedOnServer() const;

    TemporaryDirectory directory;
    ArchiveLayout layout;
    MailAccount account;
    FakeMailbox mailbox;
    std::unique_ptr<FakeIMAPServer> server;
    FolderState folder;
};

} // namespace qs::test
