#include "model/TimelineModel.h"

namespace qs {

namespace {

QVariant ordinalOf(const std::optional<MonthKey>& month) {
    return month ? QVariant(month->ordinal()) : QVariant();
}

} // namespace

void TimelineModel::setCurrentMonth(std::optional<MonthKey> month) {
    if (month != currentMonth_) {
        currentMonth_ = month;
        emit currentMonthChanged();
    }
}

void TimelineModel::setProbe(std::optional<MonthKey> month) {
    if (month != probe_) {
        probe_ = month;
        emit probeChanged();
    }
}

void TimelineModel::setScrubTarget(std::optional<ScrubTarget> target) {
    if (target != scrubTarget_) {
        scrubTarget_ = target;
        emit scrubTargetChanged();
    }
}

QVariant TimelineModel::currentMonthForView() const {
    return ordinalOf(currentMonth_);
}

QVariant TimelineModel::probeForView() const {
    return ordinalOf(probe_);
}

void TimelineModel::setProbeForView(const QVariant& ordinal) {
    setProbe(ordinal.isValid() && !ordinal.isNull()
                 ? std::optional(MonthKey::fromOrdinal(ordinal.toInt()))
                 : std::nullopt);
}

QVariant TimelineModel::scrubTargetMonth() const {
    return scrubTarget_ ? QVariant(scrubTarget_->key.ordinal()) : QVariant();
}

int TimelineModel::scrubTargetToken() const {
    return scrubTarget_ ? scrubTarget_->token : 0;
}

} // namespace qs
