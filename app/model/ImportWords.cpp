#include "model/ImportWords.h"

#include <QLocale>

namespace qs::ImportWords {

namespace {

QString files(qsizetype count, const QString& one, const QString& many) {
    return count == 1 ? one : many.arg(QLocale().toString(qlonglong(count)));
}

} // namespace

QString line(const ImportOutcome& outcome) {
    const QString path = QString::fromStdString(outcome.path.string());
    const QString detail = QString::fromStdString(outcome.error.message());
    switch (outcome.reason) {
    case ImportOutcome::Skip::none:
        return {};
    case ImportOutcome::Skip::notMail:
        return QStringLiteral("%1: wasn’t a valid email").arg(path);
    case ImportOutcome::Skip::unreadable:
        return QStringLiteral("%1: couldn’t be read — %2").arg(path, detail);
    case ImportOutcome::Skip::directory:
        return QStringLiteral("%1: is a folder, not a mail file or a Maildir").arg(path);
    case ImportOutcome::Skip::empty:
        return QStringLiteral("%1: is empty").arg(path);
    case ImportOutcome::Skip::noMessages:
        return QStringLiteral("%1: holds no messages").arg(path);
    case ImportOutcome::Skip::notWritten:
        return QStringLiteral("%1: couldn’t be copied into the vault — %2").arg(path, detail);
    }
    return {};
}

QString nothingImported(const std::vector<ImportOutcome>& outcomes, std::int64_t skipped) {
    qsizetype unreadable = 0;
    qsizetype unwritten = 0;
    for (const auto& outcome : outcomes) {
        unreadable += outcome.reason == ImportOutcome::Skip::unreadable ||
                      outcome.reason == ImportOutcome::Skip::directory;
        unwritten += outcome.reason == ImportOutcome::Skip::notWritten;
    }
    if (unwritten > 0) {
        return files(
            unwritten,
            QStringLiteral("Nothing imported — 1 file couldn’t be copied into the vault"),
            QStringLiteral("Nothing imported — %1 files couldn’t be copied into the vault"));
    }
    if (unreadable > 0) {
        return files(unreadable, QStringLiteral("Nothing imported — 1 file couldn’t be read"),
                     QStringLiteral("Nothing imported — %1 files couldn’t be read"));
    }
    return files(qsizetype(skipped),
                 QStringLiteral("Nothing imported — 1 file wasn’t a valid email"),
                 QStringLiteral("Nothing imported — %1 files weren’t a valid email"));
}

} // namespace qs::ImportWords
