#include "Theme.h"

#include <QGuiApplication>
#include <QPalette>

namespace qs {

Theme::Theme(QObject* parent) : QObject(parent), dark_(desktopPrefersDark()) {}

void Theme::setDark(bool dark) {
    if (dark_ == dark)
        return;
    dark_ = dark;
    emit changed();
}

bool Theme::desktopPrefersDark() {
    const QByteArray forced = qgetenv("QUERNSTEAD_APPEARANCE");
    if (forced == "dark")
        return true;
    if (forced == "light")
        return false;
    return QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
}

QColor Theme::named(const QString& name) const {
    if (name == u"accent" || name == u"focus")
        return focus();
    if (name == u"ink2" || name == u"secondary")
        return ink2();
    if (name == u"ink3")
        return ink3();
    if (name == u"seal" || name == u"success")
        return seal();
    if (name == u"caution")
        return caution();
    if (name == u"danger")
        return danger();
    if (name == u"navy")
        return navy();
    return ink();
}

QFont Theme::font(int pixelSize, QFont::Weight weight) {
    QFont f(QStringLiteral("Inter"));
    f.setStyleHint(QFont::SansSerif);
    f.setPixelSize(pixelSize);
    f.setWeight(weight);
    return f;
}

QFont Theme::mono() const {
    QFont f(QStringLiteral("monospace"));
    f.setStyleHint(QFont::Monospace);
    f.setPixelSize(10);
    return f;
}

} // namespace qs
