#include "model/ReaderContent.h"

#include "safety/HTMLInspector.h"

#include <QLocale>
#include <QStringList>

namespace qs::ReaderContent {

namespace {

QString str(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

// "{n} {word}" with the locale's grouping and an "s" unless n is exactly 1.
QString counted(qlonglong n, const QString& word) {
    return QStringLiteral("%1 %2%3").arg(QLocale().toString(n), word,
                                         n == 1 ? QString() : QStringLiteral("s"));
}

QString byteCount(int64_t bytes) {
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

QString copyKind(CopyStatus::Kind kind) {
    switch (kind) {
    case CopyStatus::Kind::verified:
        return QStringLiteral("verified");
    case CopyStatus::Kind::differs:
        return QStringLiteral("differs");
    case CopyStatus::Kind::imported:
        return QStringLiteral("imported");
    case CopyStatus::Kind::saved:
        return QStringLiteral("saved");
    }
    return {};
}

} // namespace

std::string bodyDocument(const ParsedMessage& parsed, bool& isHtml) {
    isHtml = parsed.htmlBody.has_value();
    if (isHtml)
        return HTMLInspector::prepareForDisplay(*parsed.htmlBody, parsed.attachments, false);
    if (parsed.textBody && !parsed.textBody->empty())
        return HTMLInspector::plainTextDocument(*parsed.textBody);
    return HTMLInspector::plainTextDocument("(This message has no text.)");
}

QString linkWarningTitle(qlonglong count) {
    return count == 1
               ? QStringLiteral("1 link doesn’t go where it says")
               : QStringLiteral("%1 links don’t go where they say").arg(QLocale().toString(count));
}

QString trackerDetail(const std::vector<std::string>& hosts) {
    if (hosts.empty())
        return QStringLiteral("Hidden images that report when you open mail never load.");
    QStringList names;
    for (const auto& host : hosts)
        names << str(host);
    return QStringLiteral("From %1. They never load, even if you show images.")
        .arg(names.join(QStringLiteral(", ")));
}

QVariantMap describe(const OpenMessage& m, bool imagesAllowed) {
    QVariantList auth;
    for (const auto& [mechanism, result] : m.authResults)
        auth.append(QVariantMap{{"mechanism", str(mechanism).toUpper()},
                                {"result", str(result)},
                                {"pass", result == "pass"}});
    QStringList reasons;
    for (const auto& flag : m.senderFlags)
        reasons << str(flag.detail);
    QVariantList warnings;
    for (const auto& w : m.report.linkWarnings)
        warnings.append(QVariantMap{{"shownText", str(w.shownText)},
                                    {"shownDomain", str(w.shownDomain)},
                                    {"actualHost", str(w.actualHost)},
                                    {"href", str(w.href)}});
    QVariantList attachments;
    for (const auto& a : m.parsed.fileAttachments())
        attachments.append(QVariantMap{{"id", qlonglong(a.id)},
                                       {"filename", str(a.filename)},
                                       {"size", byteCount(int64_t(a.data.view().size()))}});
    const auto images = qlonglong(m.report.remoteImageCount);
    return QVariantMap{
        {"path", str(m.record.path)},
        {"subject",
         m.parsed.subject.empty() ? QStringLiteral("(no subject)") : str(m.parsed.subject)},
        {"sender", str(m.record.fromDisplay())},
        {"fromEmail", str(m.record.fromEmail)},
        {"verified", m.trust == SenderTrust::verified},
        {"authResults", auth},
        {"authButton", counted(qlonglong(m.authResults.size()), QStringLiteral("check")) +
                           QStringLiteral(" at your provider")},
        {"senderReasons", reasons.join(QLatin1Char(' '))},
        {"replyTo", m.replyTo ? QStringLiteral("Replies would go to %1").arg(str(m.replyTo->email))
                              : QString()},
        {"linkWarnings", warnings},
        {"linkTitle", warnings.isEmpty() ? QString() : linkWarningTitle(warnings.size())},
        {"imagesAllowed", imagesAllowed},
        {"remoteImages", imagesAllowed ? 0 : images},
        {"showImages", QStringLiteral("Show ") + counted(images, QStringLiteral("image"))},
        {"trackers", qlonglong(m.report.trackerCount)},
        {"trackerChip", counted(qlonglong(m.report.trackerCount), QStringLiteral("tracker")) +
                            QStringLiteral(" blocked")},
        {"trackerDetail", trackerDetail(m.report.trackerHosts)},
        {"relativeName", str(m.record.path)},
        {"fileSize", byteCount(m.fileSize)},
        {"copyKind", copyKind(m.copy.kind)},
        {"copySymbol", m.copy.symbol()},
        {"copyHelp", m.copy.helpText()},
        {"attachments", attachments},
    };
}

} // namespace qs::ReaderContent
