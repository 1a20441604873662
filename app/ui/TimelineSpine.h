#pragma once

#include "TimelineSpineGeometry.h"

#include <QColor>
#include <QFont>
#include <QPointer>
#include <QQuickPaintedItem>
#include <QtQml/qqmlregistration.h>

#include <map>
#include <optional>

namespace qs {

class AppStore;

/// The month rail beside the message list: one tick per calendar month of the view, long as
/// the month is busy, drawn in one pass. Hovering shows a month (the QML draws the tip from
/// `tip*`); a click or drag scrubs the list to it. Reads the store's groups and timeline and
/// writes only through `AppStore::scrub`. Main thread only.
class TimelineSpine : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QObject* store READ store WRITE setStore NOTIFY storeChanged)
    Q_PROPERTY(QColor ink MEMBER ink_ NOTIFY inkChanged)
    Q_PROPERTY(QColor ink2 MEMBER ink2_ NOTIFY inkChanged)
    Q_PROPERTY(QColor ink3 MEMBER ink3_ NOTIFY inkChanged)
    Q_PROPERTY(QColor seal MEMBER seal_ NOTIFY inkChanged)
    Q_PROPERTY(QFont yearFont MEMBER yearFont_ NOTIFY inkChanged)
    /// The hovered month's ordinal or null; writable so screenshots can show a tip.
    Q_PROPERTY(QVariant hoverOrdinal READ hoverOrdinal WRITE setHoverOrdinal NOTIFY hoverChanged)
    Q_PROPERTY(bool dragging READ dragging NOTIFY draggingChanged)
    Q_PROPERTY(bool tipVisible READ tipVisible NOTIFY tipChanged)
    /// The hovered row's centre in the rail's coordinates.
    Q_PROPERTY(double tipY READ tipY NOTIFY tipChanged)
    Q_PROPERTY(QString tipTitle READ tipTitle NOTIFY tipChanged)
    Q_PROPERTY(int tipCount READ tipCount NOTIFY tipChanged)
    /// No months: the rail shows its empty sketch.
    Q_PROPERTY(bool empty READ empty NOTIFY layoutChanged)
    /// "{title}, {count} messages" of the current month, for the adjustable element.
    Q_PROPERTY(QString accessibleValue READ accessibleValue NOTIFY accessibleValueChanged)

public:
    explicit TimelineSpine(QQuickItem* parent = nullptr);

    QObject* store() const;
    void setStore(QObject* store);

    QVariant hoverOrdinal() const;
    void setHoverOrdinal(const QVariant& ordinal);
    const std::optional<MonthKey>& hover() const { return hover_; }
    bool dragging() const { return dragging_; }
    bool tipVisible() const;
    double tipY() const;
    QString tipTitle() const;
    int tipCount() const;
    bool empty() const;
    QString accessibleValue() const;

    /// One step of the adjustable element: +1 to the next newer month with mail, -1 to the
    /// next older; nothing past either end.
    Q_INVOKABLE void adjust(int step);

    /// What the pointer events do, by the rail's y: a hover move, a drag's press or move (which
    /// scrubs when the month changes), a drag's end.
    void hoverAt(double y);
    void dragTo(double y);
    void endDrag();

    void paint(QPainter* painter) override;

signals:
    void storeChanged();
    void inkChanged();
    void hoverChanged();
    void draggingChanged();
    void tipChanged();
    void layoutChanged();
    void accessibleValueChanged();

protected:
    void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
    void hoverEnterEvent(QHoverEvent* event) override;
    void hoverMoveEvent(QHoverEvent* event) override;
    void hoverLeaveEvent(QHoverEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseUngrabEvent() override;

private:
    /// Geometry and counts of the store's groups at one version and height, so that hover
    /// and drag redraws don't rebuild them.
    struct Layout {
        int version = -1;
        double height = -1;
        TimelineSpineGeometry geometry;
        std::map<int, int> counts;
        int maxCount = 1;
    };
    const Layout& layout() const;
    int count(const MonthKey& month) const;
    std::optional<MonthKey> currentMonth() const;
    void setHover(std::optional<MonthKey> month);
    void setDragging(bool dragging);
    void groupsChanged();
    QColor themed(TimelineSpineGeometry::Ink ink) const;
    void paintEmpty(QPainter* painter);

    QPointer<AppStore> store_;
    QColor ink_, ink2_, ink3_, seal_;
    QFont yearFont_;
    std::optional<MonthKey> hover_;
    bool dragging_ = false;
    /// The month this drag last asked for: a gap month scrubs to an older one, so comparing
    /// with the current month alone would ask again on every pixel over the gap.
    std::optional<MonthKey> dragMonth_;
    mutable Layout layout_;
};

} // namespace qs
