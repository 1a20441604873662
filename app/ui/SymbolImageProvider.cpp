#include "SymbolImageProvider.h"

#include "Symbols.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>

namespace qs {

QImage SymbolImageProvider::requestImage(const QString& id, QSize* size,
                                         const QSize& requestedSize) {
    const int slash = id.lastIndexOf(u'/');
    const QString name = slash < 0 ? id : id.left(slash);
    const QString colour = slash < 0 ? QStringLiteral("000000") : id.mid(slash + 1);
    const QSize out =
        requestedSize.isValid() && !requestedSize.isEmpty() ? requestedSize : QSize(16, 16);
    if (size)
        *size = out;
    QImage image(out, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);

    const std::string_view file = Symbols::file(name.toStdString());
    if (file.empty())
        return image;
    QFile svg(QStringLiteral(":/Quernstead/icons/%1.svg")
                  .arg(QString::fromLatin1(file.data(), static_cast<qsizetype>(file.size()))));
    if (!svg.open(QIODevice::ReadOnly))
        return image;
    // The shapes are drawn with "currentColor"; the colour asked for takes its place.
    QByteArray text = svg.readAll();
    text.replace("currentColor", "#" + colour.toLatin1());
    QSvgRenderer renderer(text);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter);
    return image;
}

} // namespace qs
