#pragma once

#include "model/MonthKey.h"

#include <QObject>
#include <QVariant>
#include <optional>

namespace qs {

/// The month rail's own observable state, kept apart from the store so that its frequent
/// changes redraw little. The interface sees months as ordinals (`MonthKey::ordinal`), or
/// null when absent. Main thread only.
class TimelineModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariant currentMonth READ currentMonthForView NOTIFY currentMonthChanged)
    Q_PROPERTY(QVariant probe READ probeForView WRITE setProbeForView NOTIFY probeChanged)
    Q_PROPERTY(QVariant scrubTargetMonth READ scrubTargetMonth NOTIFY scrubTargetChanged)
    Q_PROPERTY(int scrubTargetToken READ scrubTargetToken NOTIFY scrubTargetChanged)

public:
    /// A request to the list to scroll to a month; the token makes a repeated request for the
    /// same month a new value.
    struct ScrubTarget {
        MonthKey key;
        int token = 0;
        friend bool operator==(const ScrubTarget&, const ScrubTarget&) = default;
    };

    using QObject::QObject;

    const std::optional<MonthKey>& currentMonth() const { return currentMonth_; }
    const std::optional<MonthKey>& probe() const { return probe_; }
    const std::optional<ScrubTarget>& scrubTarget() const { return scrubTarget_; }

    /// Each setter signals only a real change.
    void setCurrentMonth(std::optional<MonthKey> month);
    void setProbe(std::optional<MonthKey> month);
    void setScrubTarget(std::optional<ScrubTarget> target);

    /// The list's top row moved to this month (by ordinal); ignored while a scrub is under way,
    /// which the caller tells.
    Q_INVOKABLE void showMonth(int ordinal) { setCurrentMonth(MonthKey::fromOrdinal(ordinal)); }
    QVariant currentMonthForView() const;
    QVariant probeForView() const;
    void setProbeForView(const QVariant& ordinal);
    QVariant scrubTargetMonth() const;
    int scrubTargetToken() const;

signals:
    void currentMonthChanged();
    void probeChanged();
    void scrubTargetChanged();

private:
    std::optional<MonthKey> currentMonth_;
    std::optional<MonthKey> probe_;
    std::optional<ScrubTarget> scrubTarget_;
};

} // namespace qs
