#pragma once

#include "backup/BackupProgress.h"
#include "vault/ArchiveLayout.h"
#include "vault/MailAccount.h"

#include <cstdint>
#include <functional>
#include <map>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// Copies one account's new mail into the vault: one connection, one pass over the chosen
/// folders, every mailbox opened read-only (EXAMINE), so nothing on the server changes, not even
/// the \Seen flag. It is the only writer of the account's sync state.
///
/// It can stop anywhere (an error, a cancellation, a killed process) and the next run goes on
/// from the last saved state without duplicates and without losing a file: each batch's message
/// files reach the disk before the state that records them is saved, a file is renamed into
/// place only when whole, and a message already on disk under its name is recognised by its
/// bytes and not written again. A run leaves no temporary file behind; one left by a killed run
/// is removed by the next run of the same account when it visits that folder.
///
/// It also repairs the vault: while a folder's UIDVALIDITY holds, a recorded file that is gone
/// from the disk, or whose size isn't the recorded one (FolderHealth), is fetched again by its
/// UID in the same batches and written under its recorded name; a changed file is first moved,
/// kept, into the set-aside folder. A message the server no longer has isn't asked for.
///
/// Message files are written on a second thread while the next messages are downloaded; a
/// batch's state is saved there once its files are on the disk. On every way out, `run` first
/// waits for that thread to finish what it was handed (a wholly fetched batch is still saved).
///
/// Made for one run; `run` is synchronous and blocks its thread.
class BackupRunner {
public:
    /// Called with each report, never two at once, but not always on the same thread: the
    /// reports after each batch come from the thread that files the messages while the next
    /// batch is downloaded. Must not block.
    using Progress = std::function<void(const BackupProgress&)>;

    BackupRunner(ArchiveLayout layout, MailAccount account, std::string password);

    ArchiveLayout layout;
    /// The account as it was when the run began.
    MailAccount account;
    std::string password;
    /// Soft limit of estimated bytes in one body FETCH: enough to keep the line busy, small
    /// enough that a lost connection costs little.
    std::int64_t batchBytes = 6'000'000;
    /// Most messages in one body FETCH.
    size_t batchCount = 40;
    /// The IMAP client's inactivity time-out, in seconds.
    double timeout = 60.0;

    /// The whole backup of the account. Folders: `account.folders` in order, or, when that is
    /// empty, the listed mailboxes named INBOX in any case; an empty LIST answer falls back to
    /// `account.knownFolders`. A chosen folder that is \Noselect or \NonExistent is skipped
    /// without a word and isn't counted; one that isn't listed is skipped too, and named in
    /// the summary's `vanished`.
    ///
    /// Holds the vault's VaultLock throughout; VaultBusyError, before anything else is done,
    /// when another writer has it.
    ///
    /// Throws, unchanged and at once, the first error of the connection, a command (IMAPError,
    /// IMAPParseError), the file system (std::system_error from writing a message or saving
    /// the state) or CancellationError when `stop` is requested (checked before each folder and
    /// each batch, and by the client while it waits). Folders after the failure aren't visited;
    /// every batch saved before it stays. A failed LOGOUT doesn't fail the run. The connection
    /// is closed on every way out.
    BackupSummary run(const Progress& progress, std::stop_token stop = {});

    /// Every file below `layout.root/directory`, at any depth, whose extension lower-cased is
    /// "eml": file size → vault-relative paths of that size, sorted. Unreadable entries are
    /// skipped; a missing directory gives an empty map.
    static std::map<std::uint64_t, std::vector<std::string>>
    filesBySize(const ArchiveLayout& layout, std::string_view directory);

    /// Removes the temporary files a killed writer left below `layout.root/directory` (names
    /// starting with AtomicFile::temporaryPrefix). Never throws; what can't be removed stays.
    static void removeLeftovers(const ArchiveLayout& layout, std::string_view directory);
};

} // namespace qs
