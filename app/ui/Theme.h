#pragma once

#include <QColor>
#include <QFont>
#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace qs {

/// The window's palette and type scale, each colour with a light and a dark value. Dark follows
/// the desktop's colour scheme (the platform palette's window colour) unless
/// QUERNSTEAD_APPEARANCE=light|dark forces one; `dark` may also be set, for screenshots.
class Theme : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(bool dark READ dark WRITE setDark NOTIFY changed)
    Q_PROPERTY(QColor navy READ navy CONSTANT)
    Q_PROPERTY(QColor paper READ paper NOTIFY changed)
    Q_PROPERTY(QColor panel READ panel NOTIFY changed)
    Q_PROPERTY(QColor raised READ raised NOTIFY changed)
    Q_PROPERTY(QColor ink READ ink NOTIFY changed)
    Q_PROPERTY(QColor ink2 READ ink2 NOTIFY changed)
    Q_PROPERTY(QColor ink3 READ ink3 NOTIFY changed)
    Q_PROPERTY(QColor seal READ seal NOTIFY changed)
    Q_PROPERTY(QColor focus READ focus NOTIFY changed)
    Q_PROPERTY(QColor caution READ caution NOTIFY changed)
    Q_PROPERTY(QColor danger READ danger NOTIFY changed)
    Q_PROPERTY(QColor rule READ rule NOTIFY changed)
    Q_PROPERTY(QColor ruleStrong READ ruleStrong NOTIFY changed)
    Q_PROPERTY(QColor selection READ selection NOTIFY changed)
    Q_PROPERTY(QColor hover READ hover NOTIFY changed)
    Q_PROPERTY(int rCard READ rCard CONSTANT)
    Q_PROPERTY(QFont display READ display CONSTANT)
    Q_PROPERTY(QFont title READ title CONSTANT)
    Q_PROPERTY(QFont month READ month CONSTANT)
    Q_PROPERTY(QFont headline READ headline CONSTANT)
    Q_PROPERTY(QFont body READ body CONSTANT)
    Q_PROPERTY(QFont callout READ callout CONSTANT)
    Q_PROPERTY(QFont caption READ caption CONSTANT)
    Q_PROPERTY(QFont label READ label CONSTANT)
    Q_PROPERTY(QFont mono READ mono CONSTANT)

public:
    explicit Theme(QObject* parent = nullptr);

    bool dark() const { return dark_; }
    void setDark(bool dark);

    /// A colour by its name ("ink2", "seal", "accent" for `focus`, …), as toasts name their tint;
    /// an unknown name gives `ink`.
    Q_INVOKABLE QColor named(const QString& name) const;

    QColor navy() const { return QColor(0x1e3c72); }
    QColor paper() const { return pick(0xf4f6f8, 0x0e1420); }
    QColor panel() const { return pick(0xffffff, 0x151c2a); }
    QColor raised() const { return pick(0xfafbfc, 0x1a2233); }
    QColor ink() const { return pick(0x142033, 0xe6eaf1); }
    QColor ink2() const { return pick(0x566173, 0x9ba6b6); }
    QColor ink3() const { return pick(0x8a94a3, 0x6b7688); }
    QColor seal() const { return pick(0x23877b, 0x45c2b1); }
    QColor focus() const { return pick(0x1e3c72, 0x5f8bd8); }
    QColor caution() const { return pick(0xa86a12, 0xe2ae55); }
    QColor danger() const { return pick(0xa63d35, 0xe5847a); }
    QColor rule() const { return withAlpha(ink(), dark_ ? 0.12 : 0.10); }
    QColor ruleStrong() const { return withAlpha(ink(), dark_ ? 0.24 : 0.20); }
    QColor selection() const { return withAlpha(focus(), dark_ ? 0.32 : 0.14); }
    QColor hover() const { return withAlpha(ink(), dark_ ? 0.07 : 0.05); }

    int rCard() const { return 10; }

    QFont display() const { return font(28, QFont::DemiBold); }
    QFont title() const { return font(20, QFont::DemiBold); }
    QFont month() const { return font(19, QFont::DemiBold); }
    QFont headline() const { return font(13, QFont::DemiBold); }
    QFont body() const { return font(13, QFont::Normal); }
    QFont callout() const { return font(12, QFont::Normal); }
    QFont caption() const { return font(11, QFont::Normal); }
    QFont label() const { return font(10, QFont::DemiBold); }
    /// The monospaced face of the timeline's year labels.
    QFont mono() const;

    /// Whether the desktop asks for dark: QUERNSTEAD_APPEARANCE when set, else a dark window
    /// colour in the platform palette.
    static bool desktopPrefersDark();

signals:
    void changed();

private:
    QColor pick(QRgb light, QRgb dark) const { return QColor(dark_ ? dark : light); }
    static QColor withAlpha(QColor color, double alpha) {
        color.setAlphaF(static_cast<float>(alpha));
        return color;
    }
    static QFont font(int pixelSize, QFont::Weight weight);

    bool dark_;
};

} // namespace qs
