#pragma once

#include "cleanup/CleanupPlan.h"
#include "model/CleanupStage.h"
#include "model/FriendlyError.h"

#include <QObject>
#include <QVariant>
#include <cstdint>
#include <optional>
#include <string>

namespace qs {

/// The observable state of the walk that frees server space: choose, verify, release, done.
/// The store alone writes it (on the main thread); the sheet reads it, and changes the stage
/// once, from verify to release.
class CleanupModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(int stage READ stageForView WRITE setStageFromView NOTIFY stageChanged)
    Q_PROPERTY(QVariant plan READ planForView NOTIFY planChanged)
    Q_PROPERTY(int checked READ checked NOTIFY checkedChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)
    Q_PROPERTY(QVariant error READ errorForView NOTIFY errorChanged)
    Q_PROPERTY(QVariant released READ releasedForView NOTIFY releasedChanged)
    Q_PROPERTY(QVariant result READ resultForView NOTIFY resultChanged)

public:
    /// Release progress, or how far a stopped release came.
    struct Released {
        int64_t done = 0;
        int64_t total = 0;
        friend bool operator==(const Released&, const Released&) = default;
    };

    using QObject::QObject;

    CleanupStage stage() const { return stage_; }
    const std::optional<CleanupPlan>& plan() const { return plan_; }
    /// How many items of the plan have been verified so far.
    int checked() const { return checked_; }
    /// A survey, verification or release is running.
    bool busy() const { return busy_; }
    const std::optional<FriendlyError::Message>& error() const { return error_; }
    const std::optional<Released>& released() const { return released_; }
    /// The summary sentence of a finished or stopped release.
    const std::optional<std::string>& result() const { return result_; }

    // Each setter signals only a real change.
    void setStage(CleanupStage stage);
    void setPlan(std::optional<CleanupPlan> plan);
    /// Writes verified statuses into the plan's items from `start` on (skipped without a plan).
    void setStatuses(size_t start, const std::vector<CleanupItem::Status>& statuses);
    void setChecked(int checked);
    void setBusy(bool busy);
    void setError(std::optional<FriendlyError::Message> error);
    void setReleased(std::optional<Released> released);
    void setResult(std::optional<std::string> result);

    int stageForView() const { return static_cast<int>(stage_); }
    /// The sheet's one write: verify → release ("Continue to Release"); other values are
    /// ignored.
    void setStageFromView(int stage);
    QVariant planForView() const;
    QVariant errorForView() const;
    QVariant releasedForView() const;
    QVariant resultForView() const;

signals:
    void stageChanged();
    void planChanged();
    void checkedChanged();
    void busyChanged();
    void errorChanged();
    void releasedChanged();
    void resultChanged();

private:
    CleanupStage stage_ = CleanupStage::choose;
    std::optional<CleanupPlan> plan_;
    int checked_ = 0;
    bool busy_ = false;
    std::optional<FriendlyError::Message> error_;
    std::optional<Released> released_;
    std::optional<std::string> result_;
};

} // namespace qs
