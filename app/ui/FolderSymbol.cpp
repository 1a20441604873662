#include "FolderSymbol.h"

namespace qs {

QString folderSymbol(const QString& name) {
    const QString n = name.toLower();
    const auto has = [&n](const char* part) {
        return n.contains(QLatin1String(part));
    };
    if (n == u"inbox")
        return QStringLiteral("tray");
    if (has("sent"))
        return QStringLiteral("paperplane");
    if (has("draft") || has("entw"))
        return QStringLiteral("doc");
    if (has("trash") || has("deleted") || has("bin"))
        return QStringLiteral("trash");
    if (has("spam") || has("junk"))
        return QStringLiteral("xmark.bin");
    if (has("all mail") || has("archive"))
        return QStringLiteral("archivebox");
    return QStringLiteral("folder");
}

QString accountSymbol(const QString& name, bool hasProblem) {
    if (name == u"Imported")
        return QStringLiteral("square.and.arrow.down");
    return hasProblem ? QStringLiteral("exclamationmark.circle") : QStringLiteral("archivebox");
}

} // namespace qs
