#include "model/CopyStatus.h"

#include "mime/MIMEParser.h"

#include <QLocale>
#include <ostream>

namespace qs {

namespace {

// The account folder that the importer files messages under.
constexpr std::string_view importedAccount = "Imported";

} // namespace

CopyStatus CopyStatus::judge(std::string_view data, const MessageRecord& record,
                             std::optional<int64_t> serverSize) {
    if (!serverSize) {
        return {record.account == importedAccount ? Kind::imported : Kind::saved, 0, 0};
    }
    auto length = static_cast<int64_t>(data.size());
    if (length == *serverSize && MIMEParser::looksValid(data)) {
        return {Kind::verified, *serverSize, 0};
    }
    return {Kind::differs, *serverSize, length};
}

QString CopyStatus::symbol() const {
    switch (kind) {
    case Kind::verified:
        return QStringLiteral("checkmark.shield.fill");
    case Kind::differs:
        return QStringLiteral("exclamationmark.shield.fill");
    case Kind::imported:
        return QStringLiteral("square.and.arrow.down");
    case Kind::saved:
        return QStringLiteral("doc");
    }
    return {};
}

QString CopyStatus::helpText() const {
    QLocale locale;
    switch (kind) {
    case Kind::verified:
        return QStringLiteral("The file holds exactly the %1 bytes your server sent, and reads "
                              "as a complete email.")
            .arg(locale.toString(qint64(server)));
    case Kind::differs:
        return QStringLiteral(
                   "The file is %1 bytes but the server sent %2. Run a backup to fetch it again.")
            .arg(locale.toString(qint64(local)), locale.toString(qint64(server)));
    case Kind::imported:
        return QStringLiteral("Imported from an .eml or .mbox file.");
    case Kind::saved:
        return QStringLiteral("Saved before Quernstead recorded server sizes; it will be "
                              "verified after the next backup.");
    }
    return {};
}

std::ostream& operator<<(std::ostream& out, const CopyStatus& status) {
    switch (status.kind) {
    case CopyStatus::Kind::verified:
        return out << "verified(" << status.server << ")";
    case CopyStatus::Kind::differs:
        return out << "differs(local " << status.local << ", server " << status.server << ")";
    case CopyStatus::Kind::imported:
        return out << "imported";
    case CopyStatus::Kind::saved:
        return out << "saved";
    }
    return out;
}

} // namespace qs
