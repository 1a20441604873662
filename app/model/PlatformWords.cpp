#include "model/PlatformWords.h"

namespace qs::PlatformWords {

namespace {

bool isWordCharacter(QChar c) {
    return c.isLetterOrNumber();
}

} // namespace

QString adapt(QStringView text) {
    QString out = text.toString();
    for (const Word& word : table) {
        const QString elsewhere =
            QString::fromUtf8(word.elsewhere.data(), qsizetype(word.elsewhere.size()));
        const QString here = QString::fromUtf8(word.here.data(), qsizetype(word.here.size()));
        for (qsizetype at = out.indexOf(elsewhere); at >= 0; at = out.indexOf(elsewhere, at)) {
            const qsizetype end = at + elsewhere.size();
            const bool whole = (at == 0 || !isWordCharacter(out[at - 1])) &&
                               (end == out.size() || !isWordCharacter(out[end]));
            if (!whole) {
                at = end;
                continue;
            }
            out.replace(at, elsewhere.size(), here);
            at += here.size();
        }
    }
    return out;
}

} // namespace qs::PlatformWords
