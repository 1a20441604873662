#include "model/MessageListModel.h"

#include "model/Fmt.h"

#include <QDateTime>
#include <algorithm>
#include <utility>

namespace qs {

MonthGroups MessageListModel::setGroups(MonthGroups groups) {
    beginResetModel();
    auto previous = std::exchange(groups_, std::move(groups));
    starts_.assign(1, 0);
    starts_.reserve(groups_.groups.size() + 1);
    for (const auto& group : groups_.groups) {
        starts_.push_back(starts_.back() + 1 + static_cast<int>(group.records.size()));
    }
    endResetModel();
    return previous;
}

int MessageListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : starts_.back();
}

std::pair<size_t, int> MessageListModel::locate(int row) const {
    auto after = std::upper_bound(starts_.begin(), starts_.end(), row);
    auto group = static_cast<size_t>(after - starts_.begin() - 1);
    return {group, row - starts_[group] - 1};
}

int MessageListModel::headerRow(int monthOrdinal) const {
    for (size_t g = 0; g < groups().size(); ++g) {
        if (groups()[g].key.ordinal() == monthOrdinal) {
            return starts_[g];
        }
    }
    return -1;
}

int MessageListModel::rowOfPath(const QString& path) const {
    auto wanted = path.toStdString();
    for (size_t g = 0; g < groups().size(); ++g) {
        const auto& records = groups()[g].records;
        for (size_t i = 0; i < records.size(); ++i) {
            if (records[i]->path == wanted) {
                return starts_[g] + 1 + static_cast<int>(i);
            }
        }
    }
    return -1;
}

int MessageListModel::rowOfPlace(size_t place) const {
    const auto& list = *groups_.records;
    if (place >= list.size() || groups().empty()) {
        return -1;
    }
    // The first group that starts after the place; the one before it holds the place.
    auto after = std::upper_bound(groups().begin(), groups().end(), place,
                                  [&](size_t at, const MonthGroup& group) {
                                      return at < size_t(group.records.data() - list.data());
                                  });
    if (after == groups().begin()) {
        return -1;
    }
    auto g = size_t(after - groups().begin() - 1);
    size_t offset = place - size_t(groups()[g].records.data() - list.data());
    return offset < groups()[g].records.size() ? starts_[g] + 1 + int(offset) : -1;
}

QVariant MessageListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() < 0 || index.row() >= starts_.back()) {
        return {};
    }
    auto [g, place] = locate(index.row());
    const auto& group = groups()[g];
    if (place < 0) {
        switch (role) {
        case IsHeaderRole:
            return true;
        case MonthOrdinalRole:
            return group.key.ordinal();
        case Qt::DisplayRole:
        case TitleRole:
            return QString::fromStdString(group.key.title());
        case CountRole:
            return static_cast<int>(group.records.size());
        default:
            return {};
        }
    }
    const MessageRecord& record = *group.records[static_cast<size_t>(place)];
    auto text = [](std::string_view s) {
        return QString::fromUtf8(s.data(), qsizetype(s.size()));
    };
    switch (role) {
    case IsHeaderRole:
        return false;
    case MonthOrdinalRole:
        return group.key.ordinal();
    case Qt::DisplayRole:
    case TitleRole:
        return text(record.subject);
    case PathRole:
        return text(record.path);
    case SenderRole:
        return text(record.fromDisplay());
    case FromEmailRole:
        return text(record.fromEmail);
    case SnippetRole:
        return text(record.snippet);
    case DateRole:
        return QDateTime::fromSecsSinceEpoch(unixSeconds(record.date));
    case RowDateRole:
        return Fmt::rowDate(record.date);
    case SizeRole:
        return static_cast<qint64>(record.size);
    case AttachmentsRole:
        return static_cast<qint64>(record.attachments);
    case TrackersRole:
        return static_cast<qint64>(record.trackers);
    case TrustRole:
        return text(toString(record.trust));
    case SuspiciousRole:
        return record.isSuspicious();
    case AccountRole:
        return text(record.account);
    case FolderRole:
        return text(record.folder);
    default:
        return {};
    }
}

QHash<int, QByteArray> MessageListModel::roleNames() const {
    return {{IsHeaderRole, "isHeader"},
            {MonthOrdinalRole, "monthOrdinal"},
            {TitleRole, "title"},
            {CountRole, "count"},
            {PathRole, "path"},
            {SenderRole, "sender"},
            {FromEmailRole, "fromEmail"},
            {SnippetRole, "snippet"},
            {DateRole, "date"},
            {RowDateRole, "rowDate"},
            {SizeRole, "size"},
            {AttachmentsRole, "attachments"},
            {TrackersRole, "trackers"},
            {TrustRole, "trust"},
            {SuspiciousRole, "suspicious"},
            {AccountRole, "account"},
            {FolderRole, "folder"}};
}

} // namespace qs
