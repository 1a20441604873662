#include "WindowState.h"

#include "BackupStripText.h"
#include "FolderSymbol.h"
#include "ListEmptyState.h"
#include "model/AppStore.h"
#include "model/SmartFilter.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QLocale>
#include <QUrl>

namespace qs {

namespace {

QString text(std::string_view s) {
    return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

} // namespace

WindowState::WindowState(AppStore& store, QObject* parent) : QObject(parent), store_(store) {
    for (auto signal : {&AppStore::backupChanged, &AppStore::indexingChanged,
                        &AppStore::accountsChanged, &AppStore::backupProblemsChanged})
        connect(&store_, signal, this, &WindowState::stripChanged);
    for (auto signal :
         {&AppStore::visibleChanged, &AppStore::recordsChanged, &AppStore::indexingChanged,
          &AppStore::queryChanged, &AppStore::sidebarChanged})
        connect(&store_, signal, this, &WindowState::listChanged);
    connect(&store_, &AppStore::recordsChanged, this, &WindowState::recordsChanged);
    connect(&store_, &AppStore::sidebarChanged, this, &WindowState::sidebarChanged);
    connect(&store_, &AppStore::accountsChanged, this, &WindowState::accountsChanged);
    connect(&store_, &AppStore::recordsChanged, this, &WindowState::accountsChanged);
    connect(&store_, &AppStore::backupProblemsChanged, this, &WindowState::accountsChanged);
    connect(&store_, &AppStore::scanFinished, this, [this] {
        scanned_ = true;
        emit accountsChanged();
    });
    agoTimer_.setInterval(30'000);
    connect(&agoTimer_, &QTimer::timeout, this, &WindowState::stripChanged);
    agoTimer_.start();
}

QString WindowState::stripTitle() const {
    return BackupStripText::title(BackupStripText::of(store_));
}

QString WindowState::stripDetail() const {
    return BackupStripText::detail(BackupStripText::of(store_));
}

QVariant WindowState::emptyState() const {
    ListEmptyState::Inputs in;
    if (const auto& indexing = store_.indexing())
        in.indexingDone = indexing->done;
    in.records = store_.records().size();
    in.visible = store_.visible().size();
    in.query = store_.query();
    in.sidebar = store_.sidebar();
    const auto state = ListEmptyState::choose(in);
    if (!state)
        return {};
    QString action;
    if (state->action == ListEmptyState::Action::backUpNow)
        action = QStringLiteral("backUp");
    else if (state->action == ListEmptyState::Action::showEverything)
        action = QStringLiteral("showEverything");
    return QVariantMap{{"symbol", state->symbol},
                       {"title", state->title},
                       {"texts", state->texts},
                       {"action", action}};
}

QString WindowState::subtitle() const {
    const auto visible = static_cast<qlonglong>(store_.visible().size());
    if (QString::fromStdString(store_.query()).trimmed().isEmpty())
        return count(visible, QStringLiteral("message"));
    const QLocale locale;
    return QStringLiteral("%1 of %2 messages")
        .arg(locale.toString(visible), locale.toString(qlonglong(store_.records().size())));
}

QString WindowState::yearSpan() const {
    const auto& records = store_.records();
    if (records.empty())
        return {};
    const int newest = MonthKey::of(records.front()->date).year;
    const int oldest = MonthKey::of(records.back()->date).year;
    return newest == oldest ? QString::number(newest)
                            : QStringLiteral("%1–%2").arg(oldest).arg(newest);
}

QVariantList WindowState::shelves() const {
    QVariantList list{QVariantMap{{"key", QStringLiteral("all")},
                                  {"title", QStringLiteral("Everything")},
                                  {"symbol", QStringLiteral("archivebox")},
                                  {"count", 0}}};
    for (SmartFilter filter : SmartFilters::all) {
        const auto found = store_.smartCounts().find(filter);
        list.append(QVariantMap{
            {"key", QStringLiteral("smart:") + text(SmartFilters::rawValue(filter))},
            {"title", text(SmartFilters::title(filter))},
            {"symbol", text(SmartFilters::symbol(filter))},
            {"count", qlonglong(found == store_.smartCounts().end() ? 0 : found->second)},
            {"caution", filter == SmartFilter::suspicious}});
    }
    return list;
}

QString WindowState::sidebarKey() const {
    const SidebarItem& item = store_.sidebar();
    switch (item.kind) {
    case SidebarItem::Kind::all:
        return QStringLiteral("all");
    case SidebarItem::Kind::smart:
        return QStringLiteral("smart:") + text(SmartFilters::rawValue(item.smart));
    case SidebarItem::Kind::saved:
        return QStringLiteral("saved:") + QString::fromStdString(item.saved.string());
    case SidebarItem::Kind::account:
        return QStringLiteral("account:") + QString::fromStdString(item.account);
    case SidebarItem::Kind::folder:
        return QStringLiteral("folder:%1/%2")
            .arg(QString::fromStdString(item.account), QString::fromStdString(item.folder));
    }
    return {};
}

bool WindowState::hasAccounts() const {
    return !store_.accounts().empty();
}

bool WindowState::showWelcome() const {
    return store_.accounts().empty() && store_.records().empty() && !store_.indexing();
}

bool WindowState::ready() const {
    return scanned_ || !store_.accounts().empty() || !store_.records().empty();
}

QString WindowState::folderSymbol(const QString& name) const {
    return qs::folderSymbol(name);
}

QString WindowState::accountSymbol(const QString& name) const {
    const QVariant account = accountOfDirectory(name);
    const bool problem =
        account.isValid() &&
        store_.backupProblems().contains(account.toMap().value("label").toString().toStdString());
    return qs::accountSymbol(name, problem);
}

QVariant WindowState::accountOfDirectory(const QString& directoryName) const {
    for (const auto& account : store_.accounts())
        if (QString::fromStdString(account.directoryName()) == directoryName)
            return QVariantMap{{"id", QString::fromStdString(account.id.string())},
                               {"label", QString::fromStdString(account.label)}};
    return {};
}

QString WindowState::symbol(const QString& name, const QColor& color) const {
    return QStringLiteral("image://symbol/%1/%2").arg(name, color.name(QColor::HexRgb).mid(1));
}

QColor WindowState::monogramColor(const QString& email) const {
    // FNV-1a over the lower-cased address: the same sender gets the same hue in every run.
    uint32_t hash = 2166136261u;
    for (const char byte : email.trimmed().toLower().toUtf8()) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 16777619u;
    }
    return QColor::fromHsl(static_cast<int>(hash % 360), 110, 120);
}

QString WindowState::initial(const QString& name, const QString& email) const {
    for (const QString& source : {name, email})
        for (const QChar c : source)
            if (c.isLetterOrNumber())
                return QString(c).toUpper();
    return QStringLiteral("?");
}

QString WindowState::monthTitle(int ordinal) const {
    return QString::fromStdString(MonthKey::fromOrdinal(ordinal).title());
}

int WindowState::monthCount(int ordinal) const {
    for (const auto& group : store_.groups())
        if (group.key.ordinal() == ordinal)
            return static_cast<int>(group.records.size());
    return 0;
}

QString WindowState::count(qlonglong n, const QString& word) const {
    return QStringLiteral("%1 %2%3").arg(QLocale().toString(n), word, n == 1 ? "" : "s");
}

void WindowState::openInMailApp(const QString& path) const {
    QDesktopServices::openUrl(QUrl::fromLocalFile(
        QString::fromStdString(store_.layout().url(path.toStdString()).string())));
}

void WindowState::copyFilePath(const QString& path) const {
    QGuiApplication::clipboard()->setText(
        QString::fromStdString(store_.layout().url(path.toStdString()).string()));
}

} // namespace qs
