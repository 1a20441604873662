#pragma once

#include "cleanup/CleanupError.h"
#include "cleanup/CleanupItem.h"
#include "cleanup/CleanupPlan.h"
#include "imap/IMAPFetchItem.h"
#include "support/Date.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

class IMAPClient;

/// Frees space on one account's server: surveys a mailbox for messages before a date, proves
/// each local copy, and releases (deletes from the server) only the proven ones. Verified means
/// proven: a local file of exactly the size the server reports, that reads back in full and
/// parses as an email with headers. Any doubt keeps a message on the server. The vault and the
/// sync state are only ever read.
///
/// Every operation opens a session of its own and closes it on every way out; a Cleaner holds
/// no state that changes, so its operations may run on any thread (one release at a time per
/// mailbox is the caller's business).
class Cleaner {
public:
    /// Called with (released so far, total) as a release goes on, on the releasing thread.
    using Progress = std::function<void(int64_t done, int64_t total)>;

    /// Most UIDs in one metadata FETCH, so that command lines stay short.
    static constexpr size_t fetchSlice = 500;

    Cleaner(ArchiveLayout layout, MailAccount account, std::string password);

    const ArchiveLayout layout;
    const MailAccount account;
    const std::string password;
    /// Messages marked and expunged in one step of a release; 0 or less acts as 1. Bounds
    /// what leaves the server between two progress reports and how long a stop takes.
    int64_t chunkSize = 200;
    /// The IMAP client's inactivity time-out, in seconds.
    double timeout = 60.0;

    /// Asks the server, in a read-only session (EXAMINE), which messages of `mailbox` have an
    /// INTERNALDATE before the day of `before` (in the local time zone), with their sizes and
    /// dates, and pairs each with a local file: from the sync state when its UIDVALIDITY is the
    /// server's, with `filesByUID` filling gaps. Every item is `pending`. Nothing on the server
    /// or on disk changes.
    ///
    /// Throws the errors of IMAPClient unchanged (IMAPError, IMAPParseError, and
    /// CancellationError when `stop` is requested while the server is awaited); no plan then.
    CleanupPlan survey(const std::string& mailbox, Date before, std::stop_token stop = {}) const;

    /// `notBackedUp` without a `localPath`, else the proof of the file under the vault root.
    static CleanupItem::Status verify(const CleanupItem& item, const ArchiveLayout& layout);

    /// The proof of one copy, in this order: no file or no size → `notBackedUp`; a size other
    /// than `serverSize` → `sizeMismatch`; the file not readable, or not `serverSize` bytes when
    /// read in full, or not mail to `MIMEParser::looksValid`, or without header fields →
    /// `unreadable`; otherwise `verified`. Reads the file, never writes it; never throws.
    static CleanupItem::Status verify(const std::filesystem::path& file, int64_t serverSize);

    /// `survey`, then `verify` on every item in order. Throws as `survey` does, and
    /// CancellationError when `stop` is requested between two items.
    CleanupPlan plan(const std::string& mailbox, Date before, std::stop_token stop = {}) const;

    /// Releases the plan's verified messages and returns how many left the server. Distrusts
    /// the plan: each copy is proven again (before any connection), the folder's UIDVALIDITY
    /// and each message's size on the server are compared again, and without UIDPLUS a release
    /// refuses to run, or stops, while any other message of the folder is marked \Deleted, as
    /// plain EXPUNGE would take it along. Messages go in chunks of `chunkSize`, each marked and
    /// expunged in one go; a failure inside a chunk unmarks that chunk again.
    ///
    /// A stop request (`stop`) takes effect between chunks only: a chunk under way is
    /// completed, so the count is exact. `progress` gets (0, total) once the server has
    /// confirmed the messages, then the count after each chunk.
    ///
    /// Throws CleanupError: `nothingVerified` (no copy proven, or none confirmed by the server;
    /// without a connection in the first case), `uidValidityChanged`, `otherDeletedMessages`,
    /// all with nothing changed on the server; `stopped` after a stop request or a failure
    /// during the chunks, with the count released and the failure's text as `problem`. IMAP
    /// failures before the first chunk come out unchanged, with nothing changed on the server.
    /// VaultBusyError, with nothing done, when another writer holds the vault's VaultLock.
    int64_t execute(const CleanupPlan& plan, const Progress& progress = {},
                    std::stop_token stop = {}) const;

    /// The message files below `layout.root/directory`, at any depth, by the UID their name
    /// ends with: for each "*.eml" file (extension in any case) the last blank-separated piece
    /// of its base name read as a decimal 32-bit number; names whose last piece is no number
    /// (such as the collision name "… (2).eml") are skipped. Where two files claim one UID the
    /// first in path order stays. Paths are vault-relative. A missing directory and unreadable
    /// entries give nothing; never throws.
    static std::map<uint32_t, std::string> filesByUID(const ArchiveLayout& layout,
                                                      std::string_view directory);

private:
    /// The metadata of `uids` (ascending), fetched in slices of `fetchSlice`.
    static std::vector<IMAPFetchItem> fetchMeta(IMAPClient& client,
                                                const std::vector<uint32_t>& uids);
    /// UID → vault-relative path of the local copies of `mailbox` under `uidValidity`.
    std::map<uint32_t, std::string> localCopies(const std::string& mailbox, uint32_t uidValidity,
                                                const std::vector<uint32_t>& uids) const;
};

} // namespace qs
