#include "backup/Importer.h"

#include "mime/EncodedWords.h"
#include "mime/MIMEParser.h"
#include "mime/MailDate.h"
#include "support/AtomicFile.h"
#include "vault/FileNames.h"

#include <chrono>

namespace qs::Importer {

std::vector<std::string> store(const std::vector<std::string>& messages,
                               std::string_view collection, const ArchiveLayout& layout) {
    auto folder = FileNames::sanitize(collection, 60, 150);
    if (folder.empty()) {
        folder = "Messages";
    }
    const auto base = std::string(importedDirectory) + "/" + folder + "/";

    std::vector<std::string> paths;
    for (const auto& message : messages) {
        if (message.empty() || !MIMEParser::looksValid(message)) {
            continue;
        }
        auto headers = MIMEParser::headers(message);
        std::optional<Date> date;
        if (const auto* field = headers.first("Date")) {
            date = MailDate::parse(*field);
        }
        if (!date) {
            date = std::chrono::system_clock::now();
        }
        const auto* subjectField = headers.first("Subject");
        auto subject = subjectField ? EncodedWords::decode(*subjectField) : std::string();
        auto relative = base + FileNames::messagePath(*date, subject, "i" + fingerprint(message));
        paths.push_back(
            layout.write(message, relative, *date, ArchiveLayout::Durability::deferred));
    }
    if (!paths.empty()) {
        AtomicFile::syncFileSystem(layout.root);
    }
    return paths;
}

} // namespace qs::Importer
