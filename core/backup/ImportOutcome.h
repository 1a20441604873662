#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <system_error>

namespace qs {

/// What importing one path the user named came to.
struct ImportOutcome {
    /// Why a path gave no message, or `none` when it gave at least one (or only some of its
    /// blocks were passed over, which `skipped` counts).
    enum class Skip {
        none,
        /// Read, but nothing in it reads as mail.
        notMail,
        /// Missing, unreadable, or neither a file nor a folder; `error` says what the platform
        /// said.
        unreadable,
        /// A folder that isn't a Maildir (no `cur` or `new` inside).
        directory,
        /// A file of zero bytes.
        empty,
        /// An mbox file or a Maildir folder without a single message in it.
        noMessages,
        /// Its mail couldn't be written into the vault; `error` says why.
        notWritten,
    };

    std::filesystem::path path;
    /// Messages filed, those already in the vault included.
    std::int64_t imported = 0;
    /// Messages passed over, or 1 for a file that gave none.
    std::int64_t skipped = 0;
    Skip reason = Skip::none;
    std::error_code error;

    /// Whether the path itself couldn't be read or its mail couldn't be written: the
    /// command line then ends in failure.
    bool failed() const {
        return reason == Skip::unreadable || reason == Skip::directory ||
               reason == Skip::notWritten;
    }

    friend bool operator==(const ImportOutcome&, const ImportOutcome&) = default;
};

std::ostream& operator<<(std::ostream& out, const ImportOutcome& outcome);

} // namespace qs
