#pragma once

#include <cstdint>
#include <exception>
#include <iosfwd>
#include <optional>
#include <string>

namespace qs {

/// Why a release ended without releasing everything it was given. Each case tells what left
/// the server and what stayed; the counts are exact.
class CleanupError : public std::exception {
public:
    enum class Kind {
        /// "This server can only remove all messages marked for deletion at once, and {n}
        /// other message(s) in the folder are already marked. Nothing was deleted."
        otherDeletedMessages,
        /// With a problem: "Released {released} of {total} messages, then the server reported
        /// a problem ({problem}). The other {total − released} are still on the server,
        /// untouched." Without, nothing released: "Stopped before anything was released."
        /// Without, some released: "Stopped after releasing {released} of {total} messages.
        /// The other {total − released} stay on the server."
        stopped,
        /// "The folder was renumbered on the server since it was checked. Run a backup, then
        /// check again."
        uidValidityChanged,
        /// "No message in the selection has a verified copy in your vault. Nothing was
        /// deleted."
        nothingVerified,
    };

    static CleanupError otherDeletedMessages(int64_t count);
    static CleanupError stopped(int64_t released, int64_t total,
                                std::optional<std::string> problem = std::nullopt);
    static CleanupError uidValidityChanged();
    static CleanupError nothingVerified();

    Kind kind() const { return kind_; }
    /// The count of `otherDeletedMessages`; 0 otherwise.
    int64_t count() const { return count_; }
    /// The counts of `stopped`: messages that left the server, and all that were to go.
    int64_t released() const { return released_; }
    int64_t total() const { return total_; }
    /// The failure that ended a `stopped` run, in its own words; nothing for a stop request.
    const std::optional<std::string>& problem() const { return problem_; }

    /// The text for the user, as listed with the cases.
    const std::string& description() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

    bool operator==(const CleanupError& other) const {
        return kind_ == other.kind_ && count_ == other.count_ && released_ == other.released_ &&
               total_ == other.total_ && problem_ == other.problem_;
    }

private:
    CleanupError(Kind kind, int64_t count, int64_t released, int64_t total,
                 std::optional<std::string> problem);

    Kind kind_;
    int64_t count_;
    int64_t released_;
    int64_t total_;
    std::optional<std::string> problem_;
    std::string description_;
};

std::ostream& operator<<(std::ostream& out, const CleanupError& error);

} // namespace qs
