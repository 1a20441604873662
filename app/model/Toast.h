#pragma once

#include "support/UUID.h"

#include <QMetaType>
#include <QObject>
#include <QString>

namespace qs {

/// The passing notice at the foot of the window.
struct Toast {
    Q_GADGET
    Q_PROPERTY(QString id READ idString)
    Q_PROPERTY(QString text MEMBER text)
    Q_PROPERTY(QString symbol MEMBER symbol)
    Q_PROPERTY(QString tint MEMBER tint)

public:
    UUID id = UUID::random();
    QString text;
    /// The name of the symbol shown beside the text.
    QString symbol;
    /// The name of a theme colour ("accent", "ink2", …); the interface maps it.
    QString tint;

    QString idString() const { return QString::fromStdString(id.string()); }

    friend bool operator==(const Toast&, const Toast&) = default;
};

} // namespace qs

Q_DECLARE_METATYPE(qs::Toast)
