#include "model/VaultRoot.h"

#include "model/SettingsKeys.h"

#include <QSettings>
#include <QStandardPaths>
#include <cstdlib>

namespace qs::VaultRoot {

std::filesystem::path defaultRoot() {
    auto documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return std::filesystem::path(documents.toStdString()) / "Quernstead";
}

std::filesystem::path choose() {
    if (const char* environment = std::getenv("QUERNSTEAD_ARCHIVE_DIR");
        environment != nullptr && *environment != '\0') {
        return environment;
    }
    QSettings settings(SettingsKeys::organisation, SettingsKeys::application);
    auto stored = settings.value(SettingsKeys::archiveRoot).toString();
    if (!stored.isEmpty()) {
        return stored.toStdString();
    }
    return defaultRoot();
}

void remember(const std::filesystem::path& root) {
    QSettings settings(SettingsKeys::organisation, SettingsKeys::application);
    settings.setValue(SettingsKeys::archiveRoot, QString::fromStdString(root.string()));
}

} // namespace qs::VaultRoot
