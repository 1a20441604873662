#include "TimelineSpine.h"

#include "Theme.h"
#include "model/AppStore.h"

#include <QDate>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <array>

namespace qs {

namespace {

QColor faded(QColor colour, double opacity) {
    colour.setAlphaF(static_cast<float>(colour.alphaF() * opacity));
    return colour;
}

} // namespace

TimelineSpine::TimelineSpine(QQuickItem* parent) : QQuickPaintedItem(parent) {
    setImplicitWidth(TimelineSpineGeometry::width);
    setAcceptHoverEvents(true);
    setAcceptedMouseButtons(Qt::LeftButton);
    setAntialiasing(true);
    // Until the QML binds the theme: its light values and the year labels' face.
    Theme theme;
    theme.setDark(false);
    ink_ = theme.ink();
    ink2_ = theme.ink2();
    ink3_ = theme.ink3();
    seal_ = theme.seal();
    yearFont_ = theme.mono();
    connect(this, &TimelineSpine::inkChanged, this, [this] { update(); });
}

QObject* TimelineSpine::store() const {
    return store_.data();
}

void TimelineSpine::setStore(QObject* store) {
    auto* next = qobject_cast<AppStore*>(store);
    if (next == store_) {
        return;
    }
    if (store_) {
        disconnect(store_, nullptr, this, nullptr);
        disconnect(&store_->timeline(), nullptr, this, nullptr);
    }
    store_ = next;
    // Another store may stand at the same version: the key alone can't tell.
    layout_.version = -1;
    if (store_) {
        connect(store_, &AppStore::groupsChanged, this, &TimelineSpine::groupsChanged);
        connect(&store_->timeline(), &TimelineModel::currentMonthChanged, this, [this] {
            update();
            emit accessibleValueChanged();
        });
    }
    emit storeChanged();
    groupsChanged();
}

void TimelineSpine::groupsChanged() {
    update();
    emit layoutChanged();
    emit tipChanged();
    emit accessibleValueChanged();
}

const TimelineSpine::Layout& TimelineSpine::layout() const {
    int version = store_ ? store_->groupsVersion() : -1;
    if (layout_.version == version && layout_.height == height() && version != -1) {
        return layout_;
    }
    layout_ = Layout{version, height(), {}, {}, 1};
    if (store_ && !store_->groups().empty()) {
        const auto& groups = store_->groups();
        for (const MonthGroup& g : groups) {
            int n = static_cast<int>(g.records.size());
            layout_.counts[g.key.ordinal()] += n;
            layout_.maxCount = std::max(layout_.maxCount, layout_.counts[g.key.ordinal()]);
        }
        // Groups run newest first; the bounds are taken from the counts so that an unsorted
        // list still spans all its months.
        layout_.geometry = TimelineSpineGeometry::make(
            MonthKey::fromOrdinal(layout_.counts.rbegin()->first),
            MonthKey::fromOrdinal(layout_.counts.begin()->first), height());
    }
    return layout_;
}

int TimelineSpine::count(const MonthKey& month) const {
    const auto& counts = layout().counts;
    auto found = counts.find(month.ordinal());
    return found == counts.end() ? 0 : found->second;
}

std::optional<MonthKey> TimelineSpine::currentMonth() const {
    return store_ ? store_->timeline().currentMonth() : std::nullopt;
}

QVariant TimelineSpine::hoverOrdinal() const {
    return hover_ ? QVariant(hover_->ordinal()) : QVariant();
}

void TimelineSpine::setHoverOrdinal(const QVariant& ordinal) {
    bool ok = false;
    int value = ordinal.toInt(&ok);
    setHover(ordinal.isValid() && !ordinal.isNull() && ok
                 ? std::optional(MonthKey::fromOrdinal(value))
                 : std::nullopt);
}

void TimelineSpine::setHover(std::optional<MonthKey> month) {
    if (hover_ == month) {
        return;
    }
    hover_ = month;
    if (store_) {
        store_->timeline().setProbe(month);
    }
    update();
    emit hoverChanged();
    emit tipChanged();
}

void TimelineSpine::setDragging(bool dragging) {
    if (dragging_ == dragging) {
        return;
    }
    dragging_ = dragging;
    emit draggingChanged();
}

bool TimelineSpine::tipVisible() const {
    return hover_ && layout().geometry.top.contains(hover_->ordinal());
}

double TimelineSpine::tipY() const {
    if (!tipVisible()) {
        return 0;
    }
    const auto& g = layout().geometry;
    return g.top.at(hover_->ordinal()) + g.rowHeight / 2;
}

QString TimelineSpine::tipTitle() const {
    return hover_ ? QString::fromStdString(hover_->title()) : QString();
}

int TimelineSpine::tipCount() const {
    return hover_ ? count(*hover_) : 0;
}

bool TimelineSpine::empty() const {
    return layout().geometry.months.empty();
}

QString TimelineSpine::accessibleValue() const {
    auto current = currentMonth();
    if (!current) {
        return {};
    }
    return QStringLiteral("%1, %2 messages")
        .arg(QString::fromStdString(current->title()))
        .arg(count(*current));
}

void TimelineSpine::adjust(int step) {
    auto current = currentMonth();
    if (!store_ || !current || step == 0) {
        return;
    }
    const auto& months = layout().geometry.months;
    auto at = std::ranges::find(months, *current);
    if (at == months.end()) {
        return;
    }
    // Months run newest first. Only months with mail: a scrub to an empty month lands on the
    // next older one, so stepping newer onto a gap would never get past it.
    auto index = at - months.begin();
    auto direction = step > 0 ? -1 : 1;
    for (auto i = index + direction; i >= 0 && i < std::ssize(months); i += direction) {
        if (count(months[static_cast<size_t>(i)]) > 0) {
            store_->scrub(months[static_cast<size_t>(i)]);
            return;
        }
    }
}

void TimelineSpine::hoverAt(double y) {
    setHover(layout().geometry.month(y));
}

void TimelineSpine::dragTo(double y) {
    setDragging(true);
    auto month = layout().geometry.month(y);
    setHover(month);
    if (!store_ || !month || month == currentMonth() || month == dragMonth_) {
        return;
    }
    dragMonth_ = month;
    store_->scrub(*month);
}

void TimelineSpine::endDrag() {
    dragMonth_.reset();
    setDragging(false);
    setHover(std::nullopt);
}

void TimelineSpine::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
    QQuickPaintedItem::geometryChange(newGeometry, oldGeometry);
    if (newGeometry.height() != oldGeometry.height()) {
        update();
        emit tipChanged();
    }
}

void TimelineSpine::hoverEnterEvent(QHoverEvent* event) {
    hoverMoveEvent(event);
}

void TimelineSpine::hoverMoveEvent(QHoverEvent* event) {
    if (!dragging_) {
        hoverAt(event->position().y());
    }
}

void TimelineSpine::hoverLeaveEvent(QHoverEvent*) {
    if (!dragging_) {
        setHover(std::nullopt);
    }
}

void TimelineSpine::mousePressEvent(QMouseEvent* event) {
    dragMonth_.reset();
    dragTo(event->position().y());
}

void TimelineSpine::mouseMoveEvent(QMouseEvent* event) {
    dragTo(event->position().y());
}

void TimelineSpine::mouseReleaseEvent(QMouseEvent*) {
    endDrag();
}

void TimelineSpine::mouseUngrabEvent() {
    if (dragging_) {
        endDrag();
    }
}

void TimelineSpine::paint(QPainter* painter) {
    const Layout& l = layout();
    const TimelineSpineGeometry& g = l.geometry;
    painter->setRenderHint(QPainter::Antialiasing);
    if (g.months.empty()) {
        paintEmpty(painter);
        return;
    }
    auto current = currentMonth();

    QFont regular = yearFont_;
    regular.setWeight(QFont::Normal);
    QFont semibold = yearFont_;
    semibold.setWeight(QFont::DemiBold);
    for (const auto& [year, y] : g.years) {
        bool isCurrent = current && current->year == year;
        painter->setFont(isCurrent ? semibold : regular);
        painter->setPen(isCurrent ? ink_ : ink3_);
        painter->drawText(QRectF(6, y - 2, TimelineSpineGeometry::labelWidth, 20),
                          Qt::AlignLeft | Qt::AlignTop, QString::number(year));
    }

    const double t = g.tickThickness();
    const double radius = std::min(t / 2, 1.5);
    painter->setPen(Qt::NoPen);
    for (const MonthKey& m : g.months) {
        auto top = g.top.find(m.ordinal());
        if (top == g.top.end()) {
            continue;
        }
        if (top->second > height()) {
            break; // rows that didn't fit fall off the bottom
        }
        int c = count(m);
        auto colour = TimelineSpineGeometry::tickColour(m == current, m == hover_, c, l.maxCount);
        painter->setBrush(faded(themed(colour.ink), colour.opacity));
        double length = TimelineSpineGeometry::tickLength(width(), c, l.maxCount);
        painter->drawRoundedRect(QRectF(TimelineSpineGeometry::labelWidth, top->second, length, t),
                                 radius, radius);
    }

    if (current) {
        if (auto top = g.top.find(current->ordinal()); top != g.top.end()) {
            const double x = TimelineSpineGeometry::labelWidth;
            const double m = top->second + t / 2;
            QPainterPath pointer;
            pointer.moveTo(x - 7, m - 4);
            pointer.lineTo(x - 2, m);
            pointer.lineTo(x - 7, m + 4);
            pointer.closeSubpath();
            painter->fillPath(pointer, seal_);
        }
    }
}

QColor TimelineSpine::themed(TimelineSpineGeometry::Ink ink) const {
    switch (ink) {
    case TimelineSpineGeometry::Ink::seal:
        return seal_;
    case TimelineSpineGeometry::Ink::ink:
        return ink_;
    case TimelineSpineGeometry::Ink::ink2:
        return ink2_;
    case TimelineSpineGeometry::Ink::ink3:
        return ink3_;
    }
    return ink_;
}

void TimelineSpine::paintEmpty(QPainter* painter) {
    // A sketch of a year of rail: placeholder weights, the fourth month marked as current.
    static constexpr std::array weights = {0.6, 0.9, 0.4, 1.0, 0.7, 0.3,
                                           0.8, 0.5, 0.2, 0.6, 0.9, 0.4};
    static constexpr size_t marked = 3;
    static constexpr double thickness = 2;
    const double pitch = TimelineSpineGeometry::emptyRowSpacing(height()) + thickness;
    const double top = 14;

    painter->setFont(yearFont_);
    painter->setPen(ink3_);
    painter->drawText(QRectF(6, top - 2, TimelineSpineGeometry::labelWidth, 20),
                      Qt::AlignLeft | Qt::AlignTop, QString::number(QDate::currentDate().year()));
    painter->setPen(Qt::NoPen);
    for (size_t i = 0; i < weights.size(); ++i) {
        painter->setBrush(i == marked ? faded(seal_, 0.7) : faded(ink3_, 0.35));
        painter->drawRoundedRect(QRectF(TimelineSpineGeometry::labelWidth,
                                        top + static_cast<double>(i) * pitch, 10 * weights[i] + 14,
                                        thickness),
                                 1, 1);
    }
}

} // namespace qs
