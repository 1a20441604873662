#pragma once

#include <QQuickImageProvider>

namespace qs {

/// Draws a symbol in a colour: "image://symbol/{name}/{rrggbb}" (the colour without "#"),
/// at the requested size (16 pixels when none is asked). An unmapped name draws nothing, so
/// no missing-image box can show.
class SymbolImageProvider : public QQuickImageProvider {
public:
    SymbolImageProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}
    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

} // namespace qs
