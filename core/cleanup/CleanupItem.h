#pragma once

#include "support/Date.h"

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace qs {

/// One message of a surveyed selection: what the server reported of it, where its local copy
/// is, and what the proof of that copy found. Identified by `uid`.
struct CleanupItem {
    /// What a verification pass found. Only `verified` allows a release; every other status
    /// keeps the message on the server, and `keptReason` says why.
    struct Status {
        enum class Kind {
            /// Not checked yet.
            pending,
            /// Proven: a file of exactly the server's size that reads back whole as an email.
            verified,
            /// The local file's size differs from the server's; `local` and `server` say how.
            sizeMismatch,
            /// No local file.
            notBackedUp,
            /// The file can't be read, or isn't an email.
            unreadable,
        };

        Kind kind = Kind::pending;
        /// The sizes of a `sizeMismatch`, in bytes; 0 for every other kind.
        int64_t local = 0;
        int64_t server = 0;

        static Status pending() { return {Kind::pending}; }
        static Status verified() { return {Kind::verified}; }
        static Status sizeMismatch(int64_t local, int64_t server) {
            return {Kind::sizeMismatch, local, server};
        }
        static Status notBackedUp() { return {Kind::notBackedUp}; }
        static Status unreadable() { return {Kind::unreadable}; }

        bool operator==(const Status&) const = default;
    };

    /// The message's UID on the server.
    uint32_t uid = 0;
    /// The server's RFC822.SIZE, in bytes.
    int64_t serverSize = 0;
    /// The server's INTERNALDATE.
    std::optional<Date> date;
    /// The local copy, relative to the vault root; absent when none was found.
    std::optional<std::string> localPath;
    Status status;

    /// Why the message stays on the server: nothing for `pending` and `verified`, a sentence
    /// for the other statuses.
    std::optional<std::string> keptReason() const;

    bool operator==(const CleanupItem&) const = default;
};

std::ostream& operator<<(std::ostream& out, const CleanupItem::Status& status);
std::ostream& operator<<(std::ostream& out, const CleanupItem& item);

} // namespace qs
