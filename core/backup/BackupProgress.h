#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// One report of a running backup. Every field defaults to empty or zero; which numbers are
/// live depends on `phase`:
/// - "Checking": before a folder is opened; all four numbers 0.
/// - "Measuring": new UIDs were found, before their sizes are asked; all four numbers 0.
/// - "Downloading": once before the first batch (done 0, totals known) and after each batch.
/// - "Done": once after the last folder, with the numbers of the last folder worked on and no
///   `newFiles`.
struct BackupProgress {
    static constexpr std::string_view checking = "Checking";
    static constexpr std::string_view measuring = "Measuring";
    static constexpr std::string_view downloading = "Downloading";
    static constexpr std::string_view done = "Done";

    std::string account; ///< the account's label
    std::string folder;  ///< display name of the mailbox being worked on
    std::string phase;
    int messagesDone = 0;  ///< messages filed so far in this folder
    int messagesTotal = 0; ///< messages to file in this folder
    std::int64_t bytesDone = 0;
    std::int64_t bytesTotal = 0;          ///< sum of the server's sizes for this folder
    std::vector<std::string> newFiles;    ///< vault-relative paths filed since the last report
    std::string mailbox;                  ///< IMAP name of the mailbox
    std::map<std::string, int> completed; ///< finished mailbox name -> count filed from it (not
                                          ///< counting those fetched again)

    friend bool operator==(const BackupProgress&, const BackupProgress&) = default;
};

/// What one run filed.
struct BackupSummary {
    int newMessages = 0;
    /// Files already in the vault recognised as messages renumbered by the server (after a
    /// UIDVALIDITY change): nothing was written for them, and they aren't new.
    int relinked = 0;
    /// Recorded files that were missing or differed on the disk, written again from the server
    /// (a changed one first set aside, kept). Not new either.
    int repaired = 0;
    std::int64_t bytes = 0; ///< body bytes of the new messages
    int folders = 0;        ///< folders that finished
    std::vector<std::string> files;
    /// Chosen mailboxes (by name) that the server no longer lists: renamed or deleted there.
    std::vector<std::string> vanished;

    friend bool operator==(const BackupSummary&, const BackupSummary&) = default;
};

std::ostream& operator<<(std::ostream& out, const BackupProgress& progress);
std::ostream& operator<<(std::ostream& out, const BackupSummary& summary);

} // namespace qs
