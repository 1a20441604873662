#pragma once

#include <QObject>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

namespace qs {

class AppStore;

/// The welcome guide: its four pages, the keycap rows of the keyboard page (read from the
/// command table), and whether it is showing. It shows by itself at the first launch, until the
/// user finishes it once ("qs.didShowWelcome"); Help and Settings bring it back.
class Onboarding : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(bool visible READ visible NOTIFY visibleChanged)
    Q_PROPERTY(QVariantList pages READ pages CONSTANT)
    Q_PROPERTY(QStringList promises READ promises CONSTANT)
    Q_PROPERTY(QString promiseNote READ promiseNote CONSTANT)

public:
    /// Works on the program's one store.
    explicit Onboarding(QObject* parent = nullptr);
    Onboarding(AppStore& store, QObject* parent);

    bool visible() const { return visible_; }
    /// Each page as `symbol`, `title`, `text`, `note` (may be empty) and `keys`: rows of
    /// `label` and `caps`, a list of key combinations, each a list of caps.
    static QVariantList pages();
    /// The welcome's promises, one per line, and the line under its button.
    static QStringList promises();
    static QString promiseNote();

    Q_INVOKABLE void open();
    /// Closes the guide and records that it was shown.
    Q_INVOKABLE void finish();
    /// The last page's button: finishes and opens the add-account sheet.
    Q_INVOKABLE void connectAccount();

signals:
    void visibleChanged();

private:
    AppStore& store_;
    bool visible_ = false;
};

} // namespace qs
