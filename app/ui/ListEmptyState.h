#pragma once

#include "model/SidebarItem.h"

#include <QString>
#include <QStringList>
#include <optional>
#include <string>

namespace qs {

/// What the message list shows in place of rows, chosen by the first condition that applies:
/// indexing with no records yet, a query with no result, an empty vault, an empty view.
struct ListEmptyState {
    enum class Action { none, backUpNow, showEverything };

    QString symbol;
    QString title;
    QStringList texts;
    Action action = Action::none;

    struct Inputs {
        /// Files indexed so far, while a scan runs.
        std::optional<size_t> indexingDone;
        size_t records = 0;
        size_t visible = 0;
        std::string query;
        SidebarItem sidebar;
    };

    /// Absent when the list has rows to show.
    static std::optional<ListEmptyState> choose(const Inputs& inputs);
    /// The text under the title of an empty view.
    static QString emptyText(const SidebarItem& view);

    friend bool operator==(const ListEmptyState&, const ListEmptyState&) = default;
};

} // namespace qs
