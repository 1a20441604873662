#pragma once

#include "support/Date.h"

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "safety/SenderTrust.h"

namespace qs {

/// The flat summary of one message file of the vault: what the list, the timeline, the smart
/// filters and the search results show without opening the file. Built once by
/// `SearchIndex::makeRecord`, stored in index.json, rebuilt only when the file's modification
/// time moves. Fields are in the order of the JSON keys.
struct MessageRecord {
    /// Slot of the record in its index; 0 until `SearchIndex::add` or `compact` sets it.
    int64_t id = 0;
    /// Vault-relative, "/"-separated, no leading "/": the one key of a message on disk.
    std::string path;
    /// First and second component of `path`; empty where there are fewer components.
    std::string account;
    std::string folder;
    std::string subject;
    /// Of the first From address; empty (not absent) without one.
    std::string fromName;
    std::string fromEmail;
    /// To then Cc, "{name} <{email}>" or the bare email, joined by ", ".
    std::string to;
    /// The message's date, else its newest Received date, else the file's modification time.
    /// Persisted in whole seconds.
    Date date{};
    /// Bytes of the whole file.
    int64_t size = 0;
    /// The first 180 characters of the body, white space runs squeezed to one blank.
    std::string snippet;
    int64_t attachments = 0;
    int64_t trackers = 0;
    int64_t remoteImages = 0;
    SenderTrust trust = SenderTrust::unknown;
    bool replyToMismatch = false;
    int64_t linkWarnings = 0;
    /// The file's modification time in seconds since 1970 as given to makeRecord; the sole
    /// freshness marker of the record.
    double mtime = 0;
    /// Summary of the first sender flag found with no learned senders.
    std::optional<std::string> senderFlag;

    /// `fromName`, else `fromEmail`, else "(unknown sender)".
    std::string_view fromDisplay() const;

    /// Failed trust, a Reply-To mismatch, a misleading link or a sender flag. Trackers, remote
    /// images and partial or unknown trust are not suspicious.
    bool isSuspicious() const;

    friend bool operator==(const MessageRecord&, const MessageRecord&) = default;
};

/// Readable form for test failures.
std::ostream& operator<<(std::ostream& out, const MessageRecord& record);

} // namespace qs

/// Consistent with equality: equal records share id, path and mtime.
template <>
struct std::hash<qs::MessageRecord> {
    size_t operator()(const qs::MessageRecord& record) const noexcept {
        size_t h = std::hash<int64_t>()(record.id);
        h ^= std::hash<std::string>()(record.path) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
        h ^= std::hash<double>()(record.mtime) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
        return h;
    }
};
