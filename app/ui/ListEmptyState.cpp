#include "ListEmptyState.h"

#include <QLocale>

namespace qs {

namespace {

QString trimmed(const std::string& text) {
    return QString::fromStdString(text).trimmed();
}

} // namespace

std::optional<ListEmptyState> ListEmptyState::choose(const Inputs& in) {
    if (in.indexingDone && in.records == 0)
        return ListEmptyState{QStringLiteral("archivebox"),
                              QStringLiteral("Reading your vault"),
                              {QStringLiteral("Messages appear as they’re indexed."),
                               QStringLiteral("%1 messages indexed")
                                   .arg(QLocale().toString(qulonglong(*in.indexingDone)))},
                              Action::none};
    if (in.visible > 0)
        return std::nullopt;
    const QString query = trimmed(in.query);
    if (!query.isEmpty())
        return ListEmptyState{QStringLiteral("magnifyingglass"),
                              QStringLiteral("Nothing matches “%1”").arg(query),
                              {QStringLiteral("Search looks in subjects, people, message text and "
                                              "attachment names. Try fewer or shorter words.")},
                              Action::none};
    if (in.records == 0)
        return ListEmptyState{
            QStringLiteral("tray"),
            QStringLiteral("The vault is empty"),
            {QStringLiteral("Run a backup to copy your messages here as .eml files.")},
            Action::backUpNow};
    const bool clear =
        in.sidebar.kind == SidebarItem::Kind::smart &&
        (in.sidebar.smart == SmartFilter::suspicious || in.sidebar.smart == SmartFilter::trackers);
    return ListEmptyState{clear ? QStringLiteral("checkmark.shield") : QStringLiteral("tray"),
                          clear ? QStringLiteral("All clear") : QStringLiteral("Nothing here"),
                          {emptyText(in.sidebar)},
                          Action::showEverything};
}

QString ListEmptyState::emptyText(const SidebarItem& view) {
    if (view.kind == SidebarItem::Kind::smart) {
        switch (view.smart) {
        case SmartFilter::recent:
            return QStringLiteral(
                "Nothing arrived in the last 30 days. Back up to fetch new mail.");
        case SmartFilter::attachments:
            return QStringLiteral("No message in your vault has attachments.");
        case SmartFilter::trackers:
            return QStringLiteral("No message in your vault tried to track when you opened it.");
        case SmartFilter::suspicious:
            return QStringLiteral("No message failed sender checks, used a look-alike address or "
                                  "hid a misleading link.");
        case SmartFilter::large:
            return QStringLiteral("No message is larger than 5 MB.");
        }
    }
    return QStringLiteral("No messages match this view.");
}

} // namespace qs
