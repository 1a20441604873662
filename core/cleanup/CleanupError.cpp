#include "cleanup/CleanupError.h"

#include <ostream>

namespace qs {

namespace {

std::string describe(CleanupError::Kind kind, int64_t count, int64_t released, int64_t total,
                     const std::optional<std::string>& problem) {
    using Kind = CleanupError::Kind;
    switch (kind) {
    case Kind::otherDeletedMessages:
        return "This server can only remove all messages marked for deletion at once, and " +
               std::to_string(count) +
               " other message(s) in the folder are already marked. Nothing was deleted.";
    case Kind::stopped:
        if (problem) {
            return "Released " + std::to_string(released) + " of " + std::to_string(total) +
                   " messages, then the server reported a problem (" + *problem + "). The other " +
                   std::to_string(total - released) + " are still on the server, untouched.";
        }
        if (released == 0) {
            return "Stopped before anything was released.";
        }
        return "Stopped after releasing " + std::to_string(released) + " of " +
               std::to_string(total) + " messages. The other " + std::to_string(total - released) +
               " stay on the server.";
    case Kind::uidValidityChanged:
        return "The folder was renumbered on the server since it was checked. Run a backup, "
               "then check again.";
    case Kind::nothingVerified:
        return "No message in the selection has a verified copy in your vault. Nothing was "
               "deleted.";
    }
    return {};
}

} // namespace

CleanupError::CleanupError(Kind kind, int64_t count, int64_t released, int64_t total,
                           std::optional<std::string> problem)
    : kind_(kind), count_(count), released_(released), total_(total), problem_(std::move(problem)),
      description_(describe(kind_, count_, released_, total_, problem_)) {}

CleanupError CleanupError::otherDeletedMessages(int64_t count) {
    return CleanupError(Kind::otherDeletedMessages, count, 0, 0, std::nullopt);
}

CleanupError CleanupError::stopped(int64_t released, int64_t total,
                                   std::optional<std::string> problem) {
    return CleanupError(Kind::stopped, 0, released, total, std::move(problem));
}

CleanupError CleanupError::uidValidityChanged() {
    return CleanupError(Kind::uidValidityChanged, 0, 0, 0, std::nullopt);
}

CleanupError CleanupError::nothingVerified() {
    return CleanupError(Kind::nothingVerified, 0, 0, 0, std::nullopt);
}

std::ostream& operator<<(std::ostream& out, const CleanupError& error) {
    return out << "CleanupError(" << error.description() << ")";
}

} // namespace qs
