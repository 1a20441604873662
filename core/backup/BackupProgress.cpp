#include "backup/BackupProgress.h"

namespace qs {

std::ostream& operator<<(std::ostream& out, const BackupProgress& progress) {
    out << "{" << progress.phase << " " << progress.account << "/" << progress.mailbox << " ("
        << progress.folder << ") " << progress.messagesDone << "/" << progress.messagesTotal
        << " msgs, " << progress.bytesDone << "/" << progress.bytesTotal << " bytes, "
        << progress.newFiles.size() << " new files, completed {";
    for (const auto& [name, count] : progress.completed) {
        out << name << ": " << count << "; ";
    }
    return out << "}}";
}

std::ostream& operator<<(std::ostream& out, const BackupSummary& summary) {
    out << "{" << summary.newMessages << " msgs, " << summary.relinked << " relinked, "
        << summary.repaired << " repaired, " << summary.bytes << " bytes, " << summary.folders
        << " folders, files [";
    for (const auto& file : summary.files) {
        out << file << "; ";
    }
    return out << "]}";
}

} // namespace qs
