#pragma once

#include <QColor>
#include <QObject>
#include <QTimer>
#include <QVariant>

namespace qs {

class AppStore;

/// What the window derives from the store, worked out in C++ so that QML only binds: the
/// backup strip's line, the list's empty state and subtitle, the shelves with their counts,
/// the sidebar's selection key, and the small lookups rows need (symbols, monogram colours,
/// the desktop's file actions).
class WindowState : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString stripTitle READ stripTitle NOTIFY stripChanged)
    Q_PROPERTY(QString stripDetail READ stripDetail NOTIFY stripChanged)
    Q_PROPERTY(QVariant emptyState READ emptyState NOTIFY listChanged)
    Q_PROPERTY(QString subtitle READ subtitle NOTIFY listChanged)
    Q_PROPERTY(QString yearSpan READ yearSpan NOTIFY recordsChanged)
    Q_PROPERTY(QVariantList shelves READ shelves NOTIFY recordsChanged)
    Q_PROPERTY(QString sidebarKey READ sidebarKey NOTIFY sidebarChanged)
    Q_PROPERTY(bool hasAccounts READ hasAccounts NOTIFY accountsChanged)
    Q_PROPERTY(bool showWelcome READ showWelcome NOTIFY accountsChanged)
    Q_PROPERTY(bool ready READ ready NOTIFY accountsChanged)

public:
    /// Registered with the window's QML as the singleton `WindowState`, beside its store.
    WindowState(AppStore& store, QObject* parent);

    QString stripTitle() const;
    QString stripDetail() const;
    /// Null when the list has rows; else a map of symbol, title, texts and action ("", "backUp",
    /// "showEverything").
    QVariant emptyState() const;
    QString subtitle() const;
    QString yearSpan() const;
    /// "Everything" then the five smart filters: key, title, symbol, count.
    QVariantList shelves() const;
    /// "all", "smart:{raw}", "saved:{id}", "account:{name}" or "folder:{account}/{folder}".
    QString sidebarKey() const;
    bool hasAccounts() const;
    /// An empty vault with no accounts shows the welcome in place of the columns.
    bool showWelcome() const;
    /// Whether the window knows enough to choose between the welcome and the columns: the first
    /// scan has ended, or there is an account or a message already. Until then it shows neither,
    /// so a start doesn't flash the one before the other.
    bool ready() const;

    Q_INVOKABLE QString folderSymbol(const QString& name) const;
    Q_INVOKABLE QString accountSymbol(const QString& name) const;
    /// Whether the vault folder belongs to a configured account (it has a menu then).
    Q_INVOKABLE QVariant accountOfDirectory(const QString& directoryName) const;
    /// "image://symbol/{name}/{rrggbb}".
    Q_INVOKABLE QString symbol(const QString& name, const QColor& color) const;
    /// A stable colour for a sender, from the address.
    Q_INVOKABLE QColor monogramColor(const QString& email) const;
    /// The sender's initial: the first letter of the name, else of the address.
    Q_INVOKABLE QString initial(const QString& name, const QString& email) const;
    /// "March 2024" for a month ordinal.
    Q_INVOKABLE QString monthTitle(int ordinal) const;
    /// How many messages of the list fall in this month.
    Q_INVOKABLE int monthCount(int ordinal) const;
    /// "{n} {word}" with the locale's grouping and an "s" unless n is 1.
    Q_INVOKABLE QString count(qlonglong n, const QString& word) const;
    /// Opens the message file at this vault path with the desktop's default mail program.
    Q_INVOKABLE void openInMailApp(const QString& path) const;
    /// Puts the message file's absolute path on the clipboard as plain text.
    Q_INVOKABLE void copyFilePath(const QString& path) const;

signals:
    void stripChanged();
    void listChanged();
    void recordsChanged();
    void sidebarChanged();
    void accountsChanged();

private:
    AppStore& store_;
    bool scanned_ = false;
    // "2 min ago" ages while the window is open.
    QTimer agoTimer_;
};

} // namespace qs
