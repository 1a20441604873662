#pragma once

#include "search/MessageRecord.h"

#include <QString>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string_view>

namespace qs {

/// The proof of a message's local copy against the size its server reported.
struct CopyStatus {
    enum class Kind {
        /// The file holds exactly the server's byte count and reads as a complete email.
        verified,
        /// The file's length differs from the server's, or it doesn't read as an email.
        differs,
        /// No server size, and the message came from a file import.
        imported,
        /// No server size: filed before sizes were recorded.
        saved,
    };

    Kind kind = Kind::saved;
    /// `verified` and `differs`: the size the server reported.
    int64_t server = 0;
    /// `differs`: the file's length.
    int64_t local = 0;

    /// The status of `data` read for `record`, given the server's size if one is known. Only
    /// the length and `MIMEParser::looksValid` are examined, and only when a size is known.
    static CopyStatus judge(std::string_view data, const MessageRecord& record,
                            std::optional<int64_t> serverSize);

    /// The seal's symbol name.
    QString symbol() const;
    /// The sentence that explains the seal, counts in the locale's grouping.
    QString helpText() const;

    friend bool operator==(const CopyStatus&, const CopyStatus&) = default;
};

std::ostream& operator<<(std::ostream& out, const CopyStatus& status);

} // namespace qs
