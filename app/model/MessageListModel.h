#pragma once

#include "model/MonthGroup.h"

#include <QAbstractListModel>
#include <vector>

namespace qs {

/// The message list as the interface reads it: every month group as one header row followed
/// by its message rows. Rows are computed on request from the groups, so a list of hundreds
/// of thousands of messages costs one offset per month, not one item per row.
class MessageListModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        IsHeaderRole = Qt::UserRole + 1,
        /// Both kinds: the month's ordinal.
        MonthOrdinalRole,
        /// Header rows: the month's title ("March 2024"); message rows: the subject.
        TitleRole,
        /// Header rows: the month's message count. Message rows: the rest are theirs.
        CountRole,
        PathRole,
        SenderRole,
        FromEmailRole,
        SnippetRole,
        DateRole,
        RowDateRole,
        SizeRole,
        AttachmentsRole,
        TrackersRole,
        TrustRole,
        SuspiciousRole,
        AccountRole,
        FolderRole,
    };
    Q_ENUM(Role)

    using QAbstractListModel::QAbstractListModel;

    /// Replaces the groups in one model reset; returns the old ones, for the caller to let
    /// go of where freeing a large list costs nothing.
    MonthGroups setGroups(MonthGroups groups);
    const std::vector<MonthGroup>& groups() const { return groups_.groups; }

    /// The row of the header of the group with this month ordinal, or -1.
    Q_INVOKABLE int headerRow(int monthOrdinal) const;
    /// The row of the message with this path, or -1. Linear in the rows.
    Q_INVOKABLE int rowOfPath(const QString& path) const;
    /// The row of the record at `place` in the list the groups are runs of (in order, as
    /// `AppStore::group` makes them), or -1. Logarithmic in the months.
    int rowOfPlace(size_t place) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

private:
    /// The group holding `row` and the record's place in it, -1 for the header.
    std::pair<size_t, int> locate(int row) const;

    MonthGroups groups_;
    /// starts_[g] is the row of group g's header; one more entry holds the row count.
    std::vector<int> starts_{0};
};

} // namespace qs
