#include "model/CleanupModel.h"

#include <QVariantList>
#include <QVariantMap>

namespace qs {

void CleanupModel::setStage(CleanupStage stage) {
    if (stage != stage_) {
        stage_ = stage;
        emit stageChanged();
    }
}

void CleanupModel::setPlan(std::optional<CleanupPlan> plan) {
    if (plan != plan_) {
        plan_ = std::move(plan);
        emit planChanged();
    }
}

void CleanupModel::setStatuses(size_t start, const std::vector<CleanupItem::Status>& statuses) {
    if (!plan_) {
        return;
    }
    for (size_t i = 0; i < statuses.size() && start + i < plan_->items.size(); ++i) {
        plan_->items[start + i].status = statuses[i];
    }
    emit planChanged();
}

void CleanupModel::setChecked(int checked) {
    if (checked != checked_) {
        checked_ = checked;
        emit checkedChanged();
    }
}

void CleanupModel::setBusy(bool busy) {
    if (busy != busy_) {
        busy_ = busy;
        emit busyChanged();
    }
}

void CleanupModel::setError(std::optional<FriendlyError::Message> error) {
    if (error != error_) {
        error_ = std::move(error);
        emit errorChanged();
    }
}

void CleanupModel::setReleased(std::optional<Released> released) {
    if (released != released_) {
        released_ = released;
        emit releasedChanged();
    }
}

void CleanupModel::setResult(std::optional<std::string> result) {
    if (result != result_) {
        result_ = std::move(result);
        emit resultChanged();
    }
}

void CleanupModel::setStageFromView(int stage) {
    if (stage_ == CleanupStage::verify && stage == static_cast<int>(CleanupStage::release)) {
        setStage(CleanupStage::release);
    }
}

QVariant CleanupModel::planForView() const {
    if (!plan_) {
        return {};
    }
    QVariantList items;
    for (const auto& item : plan_->items) {
        auto reason = item.keptReason();
        items.append(QVariantMap{
            {"uid", qlonglong(item.uid)},
            {"serverSize", qlonglong(item.serverSize)},
            {"status", static_cast<int>(item.status.kind)},
            {"keptReason", reason ? QVariant(QString::fromStdString(*reason)) : QVariant()},
        });
    }
    return QVariantMap{
        {"mailbox", QString::fromStdString(plan_->mailbox)},
        {"displayName", QString::fromStdString(plan_->displayName)},
        {"items", items},
        {"verifiedCount", qlonglong(plan_->verified().size())},
        {"verifiedBytes", qlonglong(plan_->verifiedBytes())},
        {"pending", qlonglong(plan_->pending())},
        {"canDeleteSafely", plan_->canDeleteSafely()},
    };
}

QVariant CleanupModel::errorForView() const {
    if (!error_) {
        return {};
    }
    return QVariantMap{{"title", QString::fromStdString(error_->title)},
                       {"advice", QString::fromStdString(error_->advice)}};
}

QVariant CleanupModel::releasedForView() const {
    if (!released_) {
        return {};
    }
    return QVariantMap{{"done", qlonglong(released_->done)},
                       {"total", qlonglong(released_->total)}};
}

QVariant CleanupModel::resultForView() const {
    return result_ ? QVariant(QString::fromStdString(*result_)) : QVariant();
}

} // namespace qs
