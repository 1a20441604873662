#include "model/AttachmentFiles.h"

#include "vault/FileNames.h"

#include <QDir>
#include <QFile>
#include <fstream>
#include <functional>
#include <sstream>

namespace qs::AttachmentFiles {

std::optional<std::filesystem::path> temporaryURL(const MailAttachment& attachment,
                                                  std::string_view messagePath) {
    std::ostringstream hash;
    hash << std::hex << std::hash<std::string_view>{}(messagePath);
    auto folder = std::filesystem::path(QDir::tempPath().toStdString()) / "Quernstead-attachments" /
                  hash.str();
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    std::string name = FileNames::sanitize(attachment.filename, nameCharacters, nameBytes);
    if (name.empty()) {
        name = "attachment";
    }
    auto target = folder / name;
    std::ofstream out(target, std::ios::binary | std::ios::trunc);
    auto bytes = attachment.data.view();
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
        return std::nullopt;
    }
    return target;
}

std::optional<std::string> write(const MailAttachment& attachment,
                                 const std::filesystem::path& target) {
    QFile file(QString::fromStdString(target.string()));
    auto bytes = attachment.data.view();
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(bytes.data(), qint64(bytes.size())) != qint64(bytes.size()) || !file.flush()) {
        return file.errorString().toStdString();
    }
    return std::nullopt;
}

} // namespace qs::AttachmentFiles
