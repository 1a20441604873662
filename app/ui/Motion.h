#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace qs {

/// The window's animations: `spring` (0.35 s) for things that move, `snappy` (0.25 s) for small
/// changes, `fade` (0.18 s). Under reduced motion every animation is the fade.
/// QUERNSTEAD_REDUCE_MOTION=1 asks for it, as the desktop's own setting isn't portable.
class Motion : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(bool reduced READ reduced WRITE setReduced NOTIFY changed)
    Q_PROPERTY(int spring READ spring NOTIFY changed)
    Q_PROPERTY(int snappy READ snappy NOTIFY changed)
    Q_PROPERTY(int fade READ fade CONSTANT)

public:
    explicit Motion(QObject* parent = nullptr);

    bool reduced() const { return reduced_; }
    void setReduced(bool reduced);
    int spring() const { return reduced_ ? fade() : 350; }
    int snappy() const { return reduced_ ? fade() : 250; }
    int fade() const { return 180; }

signals:
    void changed();

private:
    bool reduced_;
};

} // namespace qs
